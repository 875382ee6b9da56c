#include "actions/action_allowed.h"

#include "actions/controller_services.h"
#include "exchange/paths.h"
#include "exchange/result_codes.h"
#include "kx/tal/log.h"

namespace kx::actions {

int32_t IsActionAllowed(const std::string& webMethodName, bool allowedInRunMode) {
  KX_LOG(tal::logmask::kEntry, "IsActionAllowed()");
  if (!exchange::IsSafeMode()) {
    if (allowedInRunMode) return exchange::kResultOk;
    return webMethodName == "Format" ? exchange::kResultFormatNotAllowed : exchange::kResultFail;
  }
  if (!Services().processes.IsDaemonRunning()) {
    // The misspelling is part of the message that log readers search for.
    KX_LOG(tal::logmask::kError, "Installation Deamon isn't running.");
    return exchange::kResultFail;
  }
  return exchange::kResultOk;
}

}  // namespace kx::actions
