#include "discovery/system_web_server.h"

#include <thread>

#include "discovery/stop_signal.h"

namespace kx::discovery {

bool LocateSystemWebServer(const discovery::WebServerLocator& locator, const LocatorSchedule& schedule,
                           const StopSignal* stop, discovery::WebServerLocation& location) {
  for (int attempt = 1; attempt <= schedule.attempts; ++attempt) {
    if (stop != nullptr && stop->Raised()) return false;
    if (locator.Query(location, schedule.queryTimeoutMs)) return true;
    if (attempt == schedule.attempts) break;  // no point in waiting after the last one
    if (stop == nullptr) {
      std::this_thread::sleep_for(schedule.interval);
    } else if (stop->WaitFor(schedule.interval)) {
      return false;
    }
  }
  return false;
}

}  // namespace kx::discovery
