#include "daemon/stop_request.h"

#include <signal.h>

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>

namespace kx::daemon {
namespace {

volatile std::sig_atomic_t gStopRequested = 0;

void OnStopSignal(int) { gStopRequested = 1; }

}  // namespace

void InstallStopHandlers() {
  struct sigaction action {};
  action.sa_handler = OnStopSignal;
  sigemptyset(&action.sa_mask);
  for (const int signal : {SIGTERM, SIGINT}) {
    if (::sigaction(signal, &action, nullptr) != 0) {
      throw std::system_error(errno, std::generic_category(), "sigaction");
    }
  }
}

bool StopRequested() { return gStopRequested != 0; }

void ThrowIfStopRequested() {
  if (StopRequested()) throw std::runtime_error("stopped by a signal");
}

}  // namespace kx::daemon
