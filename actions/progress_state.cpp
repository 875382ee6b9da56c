#include "actions/progress_state.h"

#include <atomic>

#include "exchange/ipc_names.h"

namespace kx::actions {
namespace {
std::atomic<tal::osdep::SimpleSharedMemory*> gRegion{nullptr};
}  // namespace

tal::osdep::NamedMutex& ProgressMutex() {
  static tal::osdep::NamedMutex mutex(exchange::kProgressMutexName);
  return mutex;
}

tal::osdep::SimpleSharedMemory* ProgressRegion() { return gRegion.load(); }

void SetProgressRegion(tal::osdep::SimpleSharedMemory* region) { gRegion = region; }

}  // namespace kx::actions
