#include <exception>
#include <string>

#include "exchange/paths.h"
#include "kx/tal/log.h"
#include "plugin/plugin_context.h"
#include "plugin/signal_daemon_thread.h"
#include "system/boot_mode.h"

namespace kx::plugin {
namespace {

constexpr uint32_t kRestartDelayMs = 1000;

// Built when the library is loaded, so that unloading it joins a run still going.
SignalDaemonThread gRestartThread(system::kInstallBootMode, kRestartDelayMs);

void StartRestartThread() {
  // Only a label: in install mode outside safe mode the thread still signals.
  const std::string name = exchange::IsSafeMode() ? "orlaSignalSid" : "orlaRestartSys";
  try {
    gRestartThread.StartRun(name);
  } catch (const std::exception& e) {
    // The reply has gone out already; nothing may reach the host from here.
    KX_LOG(tal::logmask::kError, "Thread " + name + " could not be started: " + e.what());
    return;
  }
  KX_LOG(tal::logmask::kInfo, "Starting thread: " + name);
}

class RestartThreadStarter final : public Restarter {
 public:
  void Restart() override { StartRestartThread(); }
};

}  // namespace

SignalDaemonThread& RestartThread() { return gRestartThread; }

Restarter& RestartThreadRestarter() {
  static RestartThreadStarter restarter;
  return restarter;
}

}  // namespace kx::plugin
