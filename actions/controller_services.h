#pragma once
// The controller services the web methods call, behind small interfaces: the
// plug-in's context hands the handlers the real ones, tests in-memory ones.

#include <cstdint>
#include <ctime>
#include <string>

namespace kx::actions {

// One action at a time (platform/action_lock.h has the real one's contract).
class ActionLockService {
 public:
  virtual ~ActionLockService() = default;
  // 0 when taken, 1 when held by this ID already, negative when refused; the
  // path of the file whose time is the action's start.
  [[nodiscard]] virtual int32_t Obtain(const std::string& actionId, const std::string& holder,
                                       std::string& lockFilePath) = 0;
  [[nodiscard]] virtual bool IsHeldBy(const std::string& actionId) = 0;
  // 0 when released, negative when this ID does not hold the lock or it cannot be released.
  [[nodiscard]] virtual int32_t Release(const std::string& actionId) = 0;
};

// The target-configuration service's view of the system state.
class SystemStateService {
 public:
  virtual ~SystemStateService() = default;
  // True in safe mode or install mode (the Mode of BeginAction and Ping).
  [[nodiscard]] virtual bool InSafeOrInstallMode() = 0;
};

class ProcessTable {
 public:
  virtual ~ProcessTable() = default;
  [[nodiscard]] virtual bool IsDaemonRunning() = 0;
};

class Clock {
 public:
  virtual ~Clock() = default;
  [[nodiscard]] virtual std::time_t Now() = 0;
};

struct ControllerServices {
  ActionLockService& actionLock;
  SystemStateService& systemState;
  ProcessTable& processes;
  Clock& clock;
};

// The controller's own services.
ControllerServices& ControllersOwnServices();
// The services the handlers use: those last set, or the controller's own.
ControllerServices& Services();
// Null goes back to the controller's own. Not for use while requests run.
void UseServices(ControllerServices* services);

}  // namespace kx::actions
