#include "actions/progress_state.h"

#include <atomic>

#include "exchange/ipc_names.h"

namespace kx::actions {
namespace {
std::unique_ptr<tal::osdep::SimpleSharedMemory> gRegion;
std::atomic<tal::osdep::SimpleSharedMemory*> gRegionView{nullptr};
}  // namespace

tal::osdep::NamedMutex& ProgressMutex() {
  static tal::osdep::NamedMutex mutex(exchange::kProgressMutexName);
  return mutex;
}

tal::osdep::SimpleSharedMemory* ProgressRegion() { return gRegionView.load(); }

void SetProgressRegion(std::unique_ptr<tal::osdep::SimpleSharedMemory> region) {
  gRegionView = region.get();
  gRegion = std::move(region);
}

}  // namespace kx::actions
