#pragma once
// A mutex between processes, found by name. Every process under the same system
// root that opens a name reaches the same mutex; different roots never share one.
// The holder is one thread, which may take it again (it is free once every Lock
// has been matched by an Unlock). When the holding process dies, the kernel
// releases the mutex.
//
// Across processes it is an flock on the file
// "<SharedFileDirectory()>/kx_tal_osdep_NamedMutex_<name>"; within a process all
// objects of one name share one record that tracks the owning thread. An object
// does not survive fork(): a child process opens its own.

#include <cstdint>
#include <memory>
#include <string>

namespace kx::tal::osdep {

class NamedMutex {
 public:
  // Creates the lock file when missing. Throws InvalidArgument for an empty name
  // or one containing "/", PosixError when the file cannot be opened.
  explicit NamedMutex(const std::string& name);
  ~NamedMutex();
  NamedMutex(const NamedMutex&) = delete;
  NamedMutex& operator=(const NamedMutex&) = delete;

  // timeoutMs: negative waits without limit, 0 only tries, > 0 waits at most that
  // long. True when the calling thread now holds the mutex.
  bool Lock(int32_t timeoutMs = -1);
  bool TryLock() { return Lock(0); }
  // Throws InvalidOperation when the calling thread does not hold the mutex.
  void Unlock();

  const std::string& Name() const { return name_; }

 private:
  struct Record;
  static std::shared_ptr<Record> FindOrOpen(const std::string& path);
  // Lets another thread of this process take the mutex; needs the record's mutex.
  void GiveUpOwnership();

  std::string name_;
  std::shared_ptr<Record> record_;
};

// Takes the mutex on construction (waiting at most timeoutMs, by default without
// limit) and releases it on destruction, unless Release() gave it up earlier.
class NamedMutexLock {
 public:
  explicit NamedMutexLock(NamedMutex& mutex, int32_t timeoutMs = -1);
  ~NamedMutexLock();
  NamedMutexLock(const NamedMutexLock&) = delete;
  NamedMutexLock& operator=(const NamedMutexLock&) = delete;

  // Releases the mutex now; later calls and the destructor do nothing.
  void Release();
  // False after Release(), or when the time-out ran out before the mutex was free.
  bool IsLocked() const { return locked_; }

 private:
  NamedMutex& mutex_;
  bool locked_;
};

}  // namespace kx::tal::osdep
