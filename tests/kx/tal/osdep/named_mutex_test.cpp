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

// Exit code 0 when a child process gets the mutex within `timeoutMs`, 1 when it does not.
int TakenByChild(int32_t timeoutMs = 0) {
  return RunInChild([timeoutMs] { return NamedMutex(kName).Lock(timeoutMs) ? 0 : 1; });
}

class NamedMutexTest : public ::testing::Test {
 protected:
  test::ScratchRoot root_;
};

TEST_F(NamedMutexTest, KeepsAnotherProcessOutUntilUnlockedInThisRootOnly) {
  NamedMutex mutex(kName);
  ASSERT_TRUE(mutex.Lock());
  struct stat status;  // the lock file is open to every user
  ASSERT_EQ(0, ::stat((root_ / "/var/tmp/brenmar/shared/kx_tal_osdep_NamedMutex_").append(kName).c_str(), &status));
  EXPECT_EQ(0666u, status.st_mode & 0777u);
  EXPECT_EQ(1, TakenByChild(50));
  {
    test::ScratchRoot otherRoot;
    EXPECT_EQ(0, TakenByChild());
  }
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

// The owning thread may enter again through any object of the name; until it
// has left as often, other threads and processes stay out, and only it may unlock.
TEST_F(NamedMutexTest, OwningThreadMayReenter) {
  NamedMutex mutex(kName);
  NamedMutex sameName(kName);
  ASSERT_TRUE(mutex.Lock() && sameName.Lock(0) && mutex.TryLock());
  mutex.Unlock();
  sameName.Unlock();
  std::async(std::launch::async, [&mutex] {
    EXPECT_THROW(mutex.Unlock(), exception::InvalidOperation);
    EXPECT_FALSE(NamedMutexLock(mutex, 20).IsLocked());
  }).get();
  EXPECT_EQ(1, TakenByChild());
  mutex.Unlock();
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

}  // namespace
}  // namespace kx::tal::osdep
