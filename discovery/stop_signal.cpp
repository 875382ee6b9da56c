#include "discovery/stop_signal.h"

namespace kx::discovery {

void StopSignal::Raise() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    raised_ = true;
  }
  changed_.notify_all();
}

bool StopSignal::Raised() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return raised_;
}

bool StopSignal::WaitFor(std::chrono::milliseconds duration) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, duration, [this] { return raised_; });
}

}  // namespace kx::discovery
