#include "daemon/request_handler.h"

#include <cstdio>
#include <exception>
#include <string_view>

#include "actions/exchange_paths.h"
#include "actions/remove_dir_hierarchy.h"
#include "actions/result_codes.h"
#include "daemon/post_action.h"
#include "daemon/software_update.h"
#include "daemon/status_log.h"
#include "daemon/stop_request.h"
#include "daemon/transaction.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"
#include "platform/action_lock.h"

namespace kx::daemon {
namespace {

constexpr char kInstallRequest[] = "install.cdf";
constexpr char kPostActionRequest[] = "postaction.ini";

struct Request {
  const char* fileName;
  const char* actionType;
};

// In the order they are carried out.
constexpr Request kRequests[] = {
    {kInstallRequest, "SoftwareUpdate"},   {"getimage.ini", "GetSystemImage"},
    {"setimage.ini", "SetSystemImage"},    {"format.ini", "Format"},
    {kPostActionRequest, "FinalizeAction"},
};

// Guards against a request that can be neither carried out nor marked.
constexpr int kMaxRequestsPerWakeUp = 16;

// The ID in the lock record; the directory is named after it too.
std::string ActionId(const std::string& actionDirectory) {
  try {
    tal::TextFileReader record(tal::JoinPath(actionDirectory, platform::kActionLockRecordName));
    for (std::string line; record.ReadLine(line);) {
      if (line.compare(0, 3, "Id=") == 0) return line.substr(3);
    }
  } catch (const std::exception&) {
    // the directory's name will do
  }
  return tal::LastComponent(actionDirectory);
}

void MarkCarriedOut(const std::string& path) {
  const std::string done = path + ".done";
  if (std::rename(path.c_str(), done.c_str()) != 0 && std::remove(path.c_str()) != 0) {
    ReportError("cannot mark " + path + " as carried out");
  }
}

}  // namespace

void RequestHandler::RecoverInterruptedWork() {
  const std::string directory = actions::CurrentActionDirectory();
  try {
    if (Transaction::RecoverUnfinished(UpdateTransactionPaths(directory))) {
      ReportError("an interrupted software update was rolled back: the installed software is as it was before it");
      if (!directory.empty()) {
        const std::string request = tal::JoinPath(directory, kInstallRequest);
        if (tal::PathExists(request)) MarkCarriedOut(request);
        progress_.Record(ActionId(directory), "SoftwareUpdate", actions::kResultFail);
      }
    }
  } catch (const std::exception& error) {
    ReportError(std::string("cannot roll back the interrupted software update: ") + error.what());
  }
  if (!directory.empty() && tal::PathExists(UpdateScratchDirectory(directory))) {
    actions::RemoveDirHierarchy(UpdateScratchDirectory(directory));
  }
}

void RequestHandler::HandlePendingRequests() {
  for (int handled = 0; handled < kMaxRequestsPerWakeUp && !StopRequested(); ++handled) {
    try {
      if (!HandleNextRequest()) return;
    } catch (const std::exception& error) {
      ReportError(std::string("a request failed: ") + error.what());
    }
  }
}

bool RequestHandler::HandleNextRequest() {
  const std::string directory = actions::CurrentActionDirectory();
  if (directory.empty()) return false;
  for (const Request& request : kRequests) {
    const std::string path = tal::JoinPath(directory, request.fileName);
    if (!tal::PathExists(path)) continue;
    progress_.AwaitRequestWriters();
    const std::string actionId = ActionId(directory);
    const std::string_view name = request.fileName;
    if (name == kPostActionRequest) {
      RunPostAction(path, actionId);
    } else if (name == kInstallRequest) {
      StartStatusLog("Software update of action " + actionId);
      progress_.Start(actionId, request.actionType);
      const int32_t result = RunSoftwareUpdate(directory, progress_);
      progress_.Finish(result);
      MarkCarriedOut(path);
    } else {
      ReportError(std::string(request.actionType) + " is not supported by this installer yet");
      progress_.Record(actionId, request.actionType, actions::kResultNotImplemented);
      MarkCarriedOut(path);
    }
    return true;
  }
  return false;
}

}  // namespace kx::daemon
