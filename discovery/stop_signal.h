#pragma once
// A one-way stop request that a waiting thread sees at once.

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace kx::discovery {

class StopSignal {
 public:
  void Raise();
  bool Raised() const;
  // Waits for `duration` or until the signal is raised; true when raised.
  bool WaitFor(std::chrono::milliseconds duration) const;

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  bool raised_ = false;
};

}  // namespace kx::discovery
