#include "host/failure_limiter.h"

#include <algorithm>

namespace kx::webhost {

unsigned FailureLimiter::SecondsLockedOut(const std::string& address, Clock::time_point now) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = windows_.find(address);
  if (found == windows_.end() || found->second.failures < kAllowedFailures) return 0;
  const Clock::duration left = found->second.start + kWindow - now;
  if (left <= Clock::duration::zero()) return 0;
  return static_cast<unsigned>(std::chrono::ceil<std::chrono::seconds>(left).count());
}

void FailureLimiter::RecordFailure(const std::string& address, Clock::time_point now) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto found = windows_.find(address);
  if (found == windows_.end()) {
    MakeRoom(now);
    found = windows_.emplace(address, Window{now, 0}).first;
  } else if (now - found->second.start >= kWindow) {
    found->second = Window{now, 0};
  }
  ++found->second.failures;
}

void FailureLimiter::MakeRoom(Clock::time_point now) {
  if (windows_.size() < kMaxAddresses) return;
  for (auto entry = windows_.begin(); entry != windows_.end();) {
    entry = now - entry->second.start >= kWindow ? windows_.erase(entry) : std::next(entry);
  }
  if (windows_.size() < kMaxAddresses) return;
  const auto oldest = std::min_element(windows_.begin(), windows_.end(),
                                       [](const auto& a, const auto& b) { return a.second.start < b.second.start; });
  windows_.erase(oldest);
}

}  // namespace kx::webhost
