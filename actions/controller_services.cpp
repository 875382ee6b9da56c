#include "actions/controller_services.h"

#include <atomic>

#include "platform/action_lock.h"
#include "platform/process_finder.h"
#include "platform/target_config.h"

namespace kx::actions {
namespace {

class RealActionLock final : public ActionLockService {
 public:
  int32_t Obtain(const std::string& actionId, const std::string& holder, std::string& lockFilePath) override {
    return ObtainActionLock(actionId, holder, lockFilePath);
  }
  bool IsHeldBy(const std::string& actionId) override { return HasActionLock(actionId) != 0; }
  int32_t Release(const std::string& actionId) override { return RemoveActionLock(actionId); }
};

class RealSystemState final : public SystemStateService {
 public:
  bool InSafeOrInstallMode() override {
    std::string stateText;
    bool flag = false;  // stays false when the service does not set it
    static_cast<void>(GetSystemState(stateText, flag));
    return flag;
  }
};

class RealProcessTable final : public ProcessTable {
 public:
  bool IsDaemonRunning() override { return platform::IsDaemonRunning(); }
};

class SystemClock final : public Clock {
 public:
  std::time_t Now() override { return std::time(nullptr); }
};

}  // namespace

ControllerServices& ControllersOwnServices() {
  static RealActionLock actionLock;
  static RealSystemState systemState;
  static RealProcessTable processes;
  static SystemClock clock;
  static ControllerServices services{actionLock, systemState, processes, clock};
  return services;
}

namespace {

std::atomic<ControllerServices*> gServices{nullptr};

}  // namespace

ControllerServices& Services() {
  ControllerServices* services = gServices.load(std::memory_order_acquire);
  return services != nullptr ? *services : ControllersOwnServices();
}

void UseServices(ControllerServices* services) { gServices.store(services, std::memory_order_release); }

}  // namespace kx::actions
