#include "daemon/fault_injection.h"

#include <signal.h>

#include <cstdlib>

namespace kx::daemon {

void ReachedStep() {
  static const char* const killAt = std::getenv("KXSID_KILL_AT_STEP");
  static const long target = killAt != nullptr ? std::strtol(killAt, nullptr, 10) : 0;
  static long steps = 0;
  if (target > 0 && ++steps == target) ::raise(SIGKILL);
}

}  // namespace kx::daemon
