#pragma once
// Slows down password guessing: counts failed authentications per client
// address, and locks an address out once it reaches kAllowedFailures within a
// minute of its first failure, until that minute is over.

#include <chrono>
#include <mutex>
#include <string>
#include <unordered_map>

namespace kx::webhost {

class FailureLimiter {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr unsigned kAllowedFailures = 10;
  static constexpr std::chrono::seconds kWindow{60};
  static constexpr size_t kMaxAddresses = 10000;  // beyond: the oldest windows are forgotten

  // Whole seconds until the address may try again (rounded up); 0 when it may now.
  unsigned SecondsLockedOut(const std::string& address, Clock::time_point now);
  void RecordFailure(const std::string& address, Clock::time_point now);

 private:
  struct Window {
    Clock::time_point start;
    unsigned failures = 0;
  };
  void MakeRoom(Clock::time_point now);

  std::mutex mutex_;
  std::unordered_map<std::string, Window> windows_;
};

}  // namespace kx::webhost
