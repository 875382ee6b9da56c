#pragma once
// Finding the system web server through the local web-server locator, which may
// not be up yet when the service starts: a few attempts, some time apart.

#include <chrono>

#include "discovery/web_server_locator.h"

namespace kx::discovery {

class StopSignal;

struct LocatorSchedule {
  int attempts;
  std::chrono::milliseconds interval;  // the wait after a failed attempt
  int queryTimeoutMs;                  // the allowance of each attempt
};

// Queries `locator` until it answers, at most `schedule.attempts` times. False
// when every attempt failed, or as soon as `stop` (may be null) is raised.
bool LocateSystemWebServer(const discovery::WebServerLocator& locator, const LocatorSchedule& schedule,
                           const StopSignal* stop, discovery::WebServerLocation& location);

}  // namespace kx::discovery
