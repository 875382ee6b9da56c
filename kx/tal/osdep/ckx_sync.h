#pragma once
// The plug-in's synchronisation objects: a critical section with time-outs and a
// guard that holds any such object for a scope.

#include <cstdint>
#include <mutex>

namespace Tillwork {

class CkxSyncObject {
 public:
  virtual ~CkxSyncObject() = default;
  // timeoutMs: negative waits without limit, 0 only tries, > 0 waits at most that
  // long. True when the object was obtained.
  virtual bool Lock(int32_t timeoutMs) = 0;
  virtual void Unlock() = 0;
};

// A critical section between the threads of one process. The owning thread may
// take it again; it is free once every Lock has been matched by an Unlock.
class CkxCS : public CkxSyncObject {
 public:
  CkxCS() = default;
  CkxCS(const CkxCS&) = delete;
  CkxCS& operator=(const CkxCS&) = delete;

  bool Lock(int32_t timeoutMs) override;
  void Unlock() override;

 private:
  std::recursive_timed_mutex mutex_;
};

// Takes the object with an infinite wait on construction and releases it on
// destruction, unless Unlock() gave it up earlier.
class CkxSingleLock {
 public:
  explicit CkxSingleLock(CkxSyncObject& object);
  ~CkxSingleLock();
  CkxSingleLock(const CkxSingleLock&) = delete;
  CkxSingleLock& operator=(const CkxSingleLock&) = delete;

  // Releases the object now; later calls and the destructor do nothing.
  void Unlock();
  bool IsLocked() const { return locked_; }

 private:
  CkxSyncObject& object_;
  bool locked_;
};

}  // namespace Tillwork
