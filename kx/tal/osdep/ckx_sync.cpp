#include "kx/tal/osdep/ckx_sync.h"

#include <chrono>

namespace Tillwork {

bool CkxCS::Lock(int32_t timeoutMs) {
  if (timeoutMs < 0) {
    mutex_.lock();
    return true;
  }
  if (timeoutMs == 0) return mutex_.try_lock();
  return mutex_.try_lock_for(std::chrono::milliseconds(timeoutMs));
}

void CkxCS::Unlock() { mutex_.unlock(); }

CkxSingleLock::CkxSingleLock(CkxSyncObject& object) : object_(object), locked_(object.Lock(-1)) {}

CkxSingleLock::~CkxSingleLock() { Unlock(); }

void CkxSingleLock::Unlock() {
  if (!locked_) return;
  locked_ = false;
  object_.Unlock();
}

}  // namespace Tillwork
