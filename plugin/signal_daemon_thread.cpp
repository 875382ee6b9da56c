#include "plugin/signal_daemon_thread.h"

#include <chrono>
#include <exception>
#include <thread>

#include "exchange/ipc_names.h"
#include "exchange/paths.h"
#include "kx/tal/log.h"
#include "kx/tal/osdep/named_event.h"
#include "system/boot_mode.h"

namespace kx::plugin {

SignalDaemonThread::SignalDaemonThread(uint32_t bootMode, uint32_t delayMs) : bootMode_(bootMode), delayMs_(delayMs) {}

SignalDaemonThread::~SignalDaemonThread() { JoinRun(); }

int SignalDaemonThread::proc() {
  KX_LOG(tal::logmask::kEntry, "SignalDaemonThread::proc()");
  std::this_thread::sleep_for(std::chrono::milliseconds(delayMs_));
  // The daemon runs only in install mode or safe mode; elsewhere it must be booted.
  if (!exchange::IsInstallMode() && !exchange::IsSafeMode()) {
    system::SetBootModeAndReboot(bootMode_);
    return 0;
  }
  try {
    tal::osdep::NamedEvent requestReady(exchange::kRequestReadyEventName);
    requestReady.Set();
  } catch (const std::exception& e) {
    KX_LOG(tal::logmask::kError, std::string("Could not signal the installation daemon: ") + e.what());
  }
  return 0;
}

void SignalDaemonThread::StartRun(const std::string& name) {
  std::lock_guard<std::mutex> guard(runMutex_);
  if (started_) {
    Join();
    started_ = false;
  }
  Start(name);
  started_ = true;
}

void SignalDaemonThread::JoinRun() {
  std::lock_guard<std::mutex> guard(runMutex_);
  if (!started_) return;
  Join();
  started_ = false;
}

}  // namespace kx::plugin
