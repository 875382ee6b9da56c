// The scoped guards of the in-process mutex, the critical section and the named
// mutex, and the critical section's reentry.

#include <gtest/gtest.h>

#include <future>

#include "kx/tal/osdep/ckx_sync.h"
#include "kx/tal/osdep/mutex.h"
#include "kx/tal/osdep/named_mutex.h"
#include "tests/support/scratch_root.h"

namespace kx::tal::osdep {
namespace {

// Whether another thread gets the lock at once (and gives it back).
template <typename Take, typename Give>
bool FreeForAnotherThread(Take take, Give give) {
  return std::async(std::launch::async,
                    [&] {
                      const bool taken = take();
                      if (taken) give();
                      return taken;
                    })
      .get();
}

// A guard released early gives the lock up once and for all: when the lock is
// then taken directly, the guard's destructor must leave it held.
template <typename Guard, typename Lock, typename Take, typename Give>
void ExpectEarlyReleaseIsFinal(Lock& lock, void (Guard::*release)(), Take take, Give give) {
  const auto tryTake = [&] { return take(0); };
  {
    Guard guard(lock);
    EXPECT_TRUE(guard.IsLocked());
    EXPECT_FALSE(FreeForAnotherThread(tryTake, give));
    (guard.*release)();
    EXPECT_FALSE(guard.IsLocked());
    EXPECT_TRUE(FreeForAnotherThread(tryTake, give));
    (guard.*release)();
    ASSERT_TRUE(take(-1));
  }
  EXPECT_FALSE(FreeForAnotherThread(tryTake, give));
  give();
  EXPECT_TRUE(FreeForAnotherThread(tryTake, give));
}

TEST(LockGuardTest, EarlyReleaseIsFinalAndTheSectionIsReentrant) {
  Mutex mutex;
  ExpectEarlyReleaseIsFinal(
      mutex, &ScopedLock::Release, [&](int wait) { return wait == 0 ? mutex.TryLock() : (mutex.Lock(), true); },
      [&] { mutex.Unlock(); });
  Tillwork::CkxCS section;
  ExpectEarlyReleaseIsFinal(
      section, &Tillwork::CkxSingleLock::Unlock, [&](int wait) { return section.Lock(wait); },
      [&] { section.Unlock(); });
  // The section's owner may enter again; others wait, and give up after their time.
  const auto takenElsewhere = [&](int wait) {
    return FreeForAnotherThread([&] { return section.Lock(wait); }, [&] { section.Unlock(); });
  };
  ASSERT_TRUE(section.Lock(-1) && section.Lock(0));
  EXPECT_FALSE(takenElsewhere(20));
  section.Unlock();
  EXPECT_FALSE(takenElsewhere(0));
  section.Unlock();
  EXPECT_TRUE(takenElsewhere(0));
  test::ScratchRoot root;
  NamedMutex named("SoftwareUpdateProgressMutex");
  ExpectEarlyReleaseIsFinal(
      named, &NamedMutexLock::Release, [&](int wait) { return named.Lock(wait); }, [&] { named.Unlock(); });
}

}  // namespace
}  // namespace kx::tal::osdep
