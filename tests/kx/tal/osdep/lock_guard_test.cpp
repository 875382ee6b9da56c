// The in-process mutex, the critical section and their scoped guards.

#include <gtest/gtest.h>

#include <future>

#include "kx/tal/osdep/ckx_sync.h"
#include "kx/tal/osdep/mutex.h"

namespace kx::tal::osdep {
namespace {

// Asks another thread whether it can take the lock right now.
template <typename TryTake>
bool FreeForAnotherThread(TryTake tryTake) {
  return std::async(std::launch::async, tryTake).get();
}

TEST(ScopedLockTest, ReleaseGivesTheMutexUpOnceAndForAll) {
  Mutex mutex;
  const auto tryTake = [&mutex] {
    const bool taken = mutex.TryLock();
    if (taken) mutex.Unlock();
    return taken;
  };
  {
    ScopedLock lock(mutex);
    EXPECT_TRUE(lock.IsLocked());
    EXPECT_FALSE(FreeForAnotherThread(tryTake));
    lock.Release();
    EXPECT_FALSE(lock.IsLocked());
    EXPECT_TRUE(FreeForAnotherThread(tryTake));
    lock.Release();
    // Taken again directly: the guard's destructor must leave it alone.
    mutex.Lock();
  }
  EXPECT_FALSE(FreeForAnotherThread(tryTake));
  mutex.Unlock();
  EXPECT_TRUE(FreeForAnotherThread(tryTake));
}

TEST(CkxCSTest, OwnerMayReenterAndOthersWaitOrGiveUp) {
  Tillwork::CkxCS section;
  const auto tryTake = [&section] {
    const bool taken = section.Lock(0);
    if (taken) section.Unlock();
    return taken;
  };
  ASSERT_TRUE(section.Lock(-1));
  ASSERT_TRUE(section.Lock(0));
  EXPECT_FALSE(FreeForAnotherThread(tryTake));
  EXPECT_FALSE(FreeForAnotherThread([&section] { return section.Lock(20); }));
  section.Unlock();
  EXPECT_FALSE(FreeForAnotherThread(tryTake));
  section.Unlock();
  EXPECT_TRUE(FreeForAnotherThread(tryTake));
}

TEST(CkxSingleLockTest, UnlockGivesTheSectionUpOnceAndForAll) {
  Tillwork::CkxCS section;
  const auto tryTake = [&section] {
    const bool taken = section.Lock(0);
    if (taken) section.Unlock();
    return taken;
  };
  {
    Tillwork::CkxSingleLock lock(section);
    EXPECT_TRUE(lock.IsLocked());
    EXPECT_FALSE(FreeForAnotherThread(tryTake));
    lock.Unlock();
    EXPECT_FALSE(lock.IsLocked());
    EXPECT_TRUE(FreeForAnotherThread(tryTake));
    // Taken again directly: an extra unlock by the guard would free it.
    ASSERT_TRUE(section.Lock(-1));
  }
  EXPECT_FALSE(FreeForAnotherThread(tryTake));
  section.Unlock();
}

}  // namespace
}  // namespace kx::tal::osdep
