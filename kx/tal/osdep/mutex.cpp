#include "kx/tal/osdep/mutex.h"

namespace kx::tal::osdep {

ScopedLock::ScopedLock(Mutex& mutex) : mutex_(mutex), locked_(true) { mutex_.Lock(); }

ScopedLock::~ScopedLock() { Release(); }

void ScopedLock::Release() {
  if (!locked_) return;
  locked_ = false;
  mutex_.Unlock();
}

}  // namespace kx::tal::osdep
