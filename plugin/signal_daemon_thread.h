#pragma once
// The thread that, once a reply has gone out, makes the installation daemon act
// on the request the handler left for it: when the daemon runs (safe mode or
// install mode) it is woken through its named event; otherwise the controller
// restarts into install mode, where the daemon starts and finds the request.

#include <cstdint>
#include <mutex>
#include <string>

#include "kx/tal/osdep/thread.h"

namespace kx::plugin {

class SignalDaemonThread : public tal::osdep::Thread {
 public:
  // bootMode: the boot mode to restart into (see system/boot_mode.h); delayMs:
  // how long the thread waits before acting, so the reply reaches the client first.
  SignalDaemonThread(uint32_t bootMode, uint32_t delayMs);
  // Waits for a run still going, since proc() uses this object's settings.
  ~SignalDaemonThread() override;

  // Sleeps, then wakes the daemon or restarts the controller. Returns 0; failures
  // are logged, as no request waits for them.
  int proc() override;

  // Joins a run that was started and not yet joined, then starts a new one
  // under `name`. Safe to call from several threads.
  void StartRun(const std::string& name);
  // Waits for the run started last, when it has not been joined yet.
  void JoinRun();

 private:
  const uint32_t bootMode_;
  const uint32_t delayMs_;
  std::mutex runMutex_;
  bool started_ = false;  // a run was started and not yet joined; guarded by runMutex_
};

// The plug-in's one instance (install boot mode, 1000 ms), built when the
// library is loaded and started by each request that asks for a restart.
SignalDaemonThread& RestartThread();

}  // namespace kx::plugin
