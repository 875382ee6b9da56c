#pragma once
// The thread that announces the service once, started by the plug-in at start-up.

#include <atomic>

#include "discovery/stop_signal.h"
#include "kx/tal/osdep/thread.h"

namespace kx::discovery {

class mDnsAnnouncer : public tal::osdep::Thread {
 public:
  static constexpr char kThreadName[] = "orla-mDns";

  // Starts the thread at once. Throws PosixError when it cannot be created.
  mDnsAnnouncer();
  // Cuts a wait for the local web-server locator short and joins the thread.
  // The announcement, once made, stays: only mDnsUnregisterService withdraws it.
  ~mDnsAnnouncer() override;

  int proc() override;

  // Set by the thread when its work is done; the owner may then destroy it.
  bool Finished() const { return finished_.load(std::memory_order_acquire); }

 private:
  StopSignal stop_;
  std::atomic<bool> finished_{false};
};

}  // namespace kx::discovery
