#pragma once
// A mutex between the threads of one process, and a guard that holds it for a scope.

#include <mutex>

namespace kx::tal::osdep {

class Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void Lock() { mutex_.lock(); }
  bool TryLock() { return mutex_.try_lock(); }
  void Unlock() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

// Takes the mutex on construction and releases it on destruction, unless
// Release() gave it up earlier.
class ScopedLock {
 public:
  explicit ScopedLock(Mutex& mutex);
  ~ScopedLock();
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

  // Releases the mutex now; later calls and the destructor do nothing.
  void Release();
  bool IsLocked() const { return locked_; }

 private:
  Mutex& mutex_;
  bool locked_;
};

}  // namespace kx::tal::osdep
