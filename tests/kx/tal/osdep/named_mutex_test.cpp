#include "kx/tal/osdep/named_mutex.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <future>
#include <thread>

#include "kx/tal/exception/exception.h"
#include "tests/kx/tal/osdep/child_process.h"
#include "tests/support/scratch_root.h"

namespace kx::tal::osdep {
namespace {

using test::ChildProcess;
using test::ReadySignal;
using test::RunInChild;

const char kName[] = "SoftwareUpdateProgressMutex";

// Whether a fresh object in another thread gets the mutex at once.
bool FreeForAnotherThread() {
  return std::async(std::launch::async, [] {
           NamedMutex mutex(kName);
           const bool taken = mutex.TryLock();
           if (taken) mutex.Unlock();
           return taken;
         })
      .get();
}

// Exit code 0 when a child process gets the mutex at once, 1 when it does not.
int TakenByChild() {
  return RunInChild([] {
    NamedMutex mutex(kName);
    return mutex.TryLock() ? 0 : 1;
  });
}

class NamedMutexTest : public ::testing::Test {
 protected:
  test::ScratchRoot root_;
};

TEST_F(NamedMutexTest, RejectsEmptyNamesAndSlashes) {
  EXPECT_THROW(NamedMutex(""), exception::InvalidArgument);
  EXPECT_THROW(NamedMutex("a/b"), exception::InvalidArgument);
}

TEST_F(NamedMutexTest, LockFileLiesInTheSharedDirectoryOpenToAllUsers) {
  NamedMutex mutex(kName);
  struct stat status;
  ASSERT_EQ(0, ::stat((root_ / "/var/tmp/brenmar/shared/kx_tal_osdep_NamedMutex_").append(kName).c_str(),
                      &status));
  EXPECT_EQ(0666u, status.st_mode & 0777u);
}

TEST_F(NamedMutexTest, KeepsAnotherProcessOutUntilUnlocked) {
  NamedMutex mutex(kName);
  ASSERT_TRUE(mutex.Lock());
  EXPECT_EQ(1, RunInChild([] {
              NamedMutex mutex(kName);
              return mutex.Lock(50) ? 0 : 1;
            }));
  mutex.Unlock();
  EXPECT_EQ(0, TakenByChild());
}

TEST_F(NamedMutexTest, IsFreeAgainWhenTheHoldingProcessIsKilled) {
  ReadySignal holding;
  ChildProcess holder([&holding] {
    NamedMutex mutex(kName);
    mutex.Lock();
    holding.Send();
    for (;;) ::pause();
    return 0;
  });
  ASSERT_TRUE(holding.Wait());
  NamedMutex mutex(kName);
  EXPECT_FALSE(mutex.TryLock());
  holder.Kill();
  holder.Wait();
  EXPECT_TRUE(mutex.Lock(5000));
  mutex.Unlock();
}

TEST_F(NamedMutexTest, AnotherSystemRootHasItsOwnMutex) {
  NamedMutex mutex(kName);
  ASSERT_TRUE(mutex.Lock());
  {
    test::ScratchRoot otherRoot;
    EXPECT_EQ(0, TakenByChild());
  }
  EXPECT_EQ(1, TakenByChild());
  mutex.Unlock();
}

TEST_F(NamedMutexTest, OwningThreadMayReenterThroughAnyObjectOfTheName) {
  NamedMutex mutex(kName);
  NamedMutex sameName(kName);
  ASSERT_TRUE(mutex.Lock());
  ASSERT_TRUE(sameName.Lock(0));
  ASSERT_TRUE(mutex.TryLock());
  mutex.Unlock();
  sameName.Unlock();
  EXPECT_FALSE(FreeForAnotherThread());
  EXPECT_EQ(1, TakenByChild());
  mutex.Unlock();
  EXPECT_TRUE(FreeForAnotherThread());
  EXPECT_EQ(0, TakenByChild());
}

TEST_F(NamedMutexTest, ThreadsOfOneProcessExcludeEachOther) {
  int counter = 0;  // a data race here would show when exclusion fails
  const auto count = [&counter] {
    NamedMutex mutex(kName);
    for (int i = 0; i < 200; ++i) {
      NamedMutexLock lock(mutex);
      const int seen = counter;
      std::this_thread::yield();
      counter = seen + 1;
    }
  };
  std::thread first(count);
  std::thread second(count);
  first.join();
  second.join();
  EXPECT_EQ(400, counter);
}

TEST_F(NamedMutexTest, OnlyTheOwningThreadMayUnlock) {
  NamedMutex mutex(kName);
  EXPECT_THROW(mutex.Unlock(), exception::InvalidOperation);
  ASSERT_TRUE(mutex.Lock());
  std::async(std::launch::async, [&mutex] {
    EXPECT_THROW(mutex.Unlock(), exception::InvalidOperation);
    NamedMutexLock timedOut(mutex, 20);
    EXPECT_FALSE(timedOut.IsLocked());
  }).get();
  mutex.Unlock();
}

TEST_F(NamedMutexTest, ReleasedGuardLeavesALaterLockAlone) {
  NamedMutex mutex(kName);
  {
    NamedMutexLock lock(mutex);
    EXPECT_TRUE(lock.IsLocked());
    EXPECT_FALSE(FreeForAnotherThread());
    lock.Release();
    EXPECT_FALSE(lock.IsLocked());
    EXPECT_TRUE(FreeForAnotherThread());
    ASSERT_TRUE(mutex.Lock());
  }
  EXPECT_FALSE(FreeForAnotherThread());
  mutex.Unlock();
}

}  // namespace
}  // namespace kx::tal::osdep
