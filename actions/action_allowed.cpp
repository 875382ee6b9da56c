#include "actions/action_allowed.h"

#include "actions/process_finder.h"
#include "actions/result_codes.h"
#include "exchange/paths.h"
#include "kx/tal/log.h"

namespace kx::actions {

int32_t IsActionAllowed(const std::string& webMethodName, bool allowedInRunMode) {
  KX_LOG(tal::logmask::kEntry, "IsActionAllowed()");
  if (!exchange::IsSafeMode()) {
    if (allowedInRunMode) return kResultOk;
    return webMethodName == "Format" ? kResultFormatNotAllowed : kResultFail;
  }
  if (!IsDaemonRunning()) {
    // The misspelling is part of the message that log readers search for.
    KX_LOG(tal::logmask::kError, "Installation Deamon isn't running.");
    return kResultFail;
  }
  return kResultOk;
}

}  // namespace kx::actions
