#include "daemon/post_action.h"

#include <strings.h>

#include "daemon/file_operations.h"
#include "daemon/status_log.h"
#include "exchange/request_files.h"
#include "ini/ini_document.h"
#include "platform/action_lock.h"
#include "system/boot_mode.h"

namespace kx::daemon {

void RunPostAction(const std::string& requestPath, const std::string& actionId) {
  ini::Document request;
  std::string action;
  std::string webMethod;
  if (request.Load(requestPath) < 0) ReportError("cannot read " + requestPath + ": no post-action");
  request.GetText(exchange::kPostActionRequest.section, exchange::kActionKey, action);
  request.GetText(exchange::kPostActionRequest.section, exchange::kWebMethodKey, webMethod);
  ReportInfo("post-action \"" + action + "\" of action " + actionId + " (" + webMethod + ")");

  const bool reboot = ::strcasecmp(action.c_str(), "Reboot") == 0;
  if (!reboot && !action.empty() && ::strcasecmp(action.c_str(), "None") != 0) {
    ReportError("unknown post-action \"" + action + "\": nothing done but ending the action");
  }
  const int32_t released = RemoveActionLock(actionId);
  if (released != 0) {
    ReportError("cannot give up the lock of action " + actionId + " (result " + std::to_string(released) + ")");
    try {
      RemoveFileIfPresent(requestPath);
    } catch (const std::exception& error) {
      ReportError(error.what());
    }
  }
  if (reboot) {
    ReportInfo("rebooting into the runtime");
    system::SetBootModeAndReboot(system::kRuntimeBootMode);
  }
}

}  // namespace kx::daemon
