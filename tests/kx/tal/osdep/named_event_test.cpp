#include "kx/tal/osdep/named_event.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/sem.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "kx/tal/exception/os_exception.h"
#include "tests/kx/tal/osdep/child_process.h"
#include "tests/support/scratch_root.h"

namespace kx::tal::osdep {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using test::ChildProcess;
using test::ReadySignal;
using test::RunInChild;

const char kName[] = "SoftwareActionRequestReady";
const char kManualName[] = "ManualEvent";

class NamedEventTest : public ::testing::Test {
 protected:
  // Nobody leaves a semaphore set behind.
  void TearDown() override {
    RemoveNamedEvent(kName);
    RemoveNamedEvent(kManualName);
  }
  test::ScratchRoot root_;
};

// A set left behind by a killed process, whose key file is gone: the file
// system may give the next key file the same inode, and with it the same key.
TEST_F(NamedEventTest, ASetLeftBehindUnderAReusedKeyStopsNoNewEvent) {
  { NamedEvent once(kName); }  // the event's other files exist from now on
  RemoveNamedEvent(kName);
  const std::string probe = root_ / "/tmp/brenmar/probe";
  std::ofstream(probe).put('x');
  const int leftover = ::semget(::ftok(probe.c_str(), 1), 1, IPC_CREAT | IPC_EXCL | 0666);  // 1: the events' id
  ASSERT_NE(leftover, -1);
  std::filesystem::remove(probe);
  EXPECT_NO_THROW({
    NamedEvent event(kName);
    event.Set();
    EXPECT_TRUE(event.TryWait());
  });
  ::semctl(leftover, 0, IPC_RMID);
}

TEST_F(NamedEventTest, ChildWaitingOnTheEventWakesWhenTheParentSetsIt) {
  NamedEvent event(kName);
  ReadySignal waiting;
  ChildProcess child([&waiting] {
    NamedEvent event(kName);
    waiting.Send();
    return event.Wait(NamedEvent::kInfinite) ? 0 : 1;
  });
  ASSERT_TRUE(waiting.Wait());
  std::this_thread::sleep_for(milliseconds(50));  // most likely blocked by now
  event.Set();
  EXPECT_EQ(0, child.Wait());
  EXPECT_FALSE(event.TryWait()) << "the child's wait consumed the signal";
}

TEST_F(NamedEventTest, AutoResetSignalsDoNotAccumulateManualResetOnesStay) {
  NamedEvent event(kName);
  event.Set();
  event.Set();
  // Exit code: how many of two waits in another process succeed.
  EXPECT_EQ(1, RunInChild([] {
              NamedEvent event(kName);
              return int(event.TryWait()) + int(event.Wait(10));
            }));

  NamedEvent manual(kManualName, 1);
  EXPECT_FALSE(manual.TryWait());
  manual.Set();
  EXPECT_EQ(2, RunInChild([] {
              NamedEvent manual(kManualName, 1);
              return int(manual.TryWait()) + int(manual.Wait(0));
            }));
  EXPECT_TRUE(manual.TryWait());
  manual.Reset();
  EXPECT_FALSE(manual.TryWait());
}

std::atomic<int> gInterruptions{0};
void CountInterruption(int) { ++gInterruptions; }

TEST_F(NamedEventTest, TimedWaitRunsOutAfterAboutThatLongInterruptedOrNot) {
  NamedEvent event(kName);
  const Clock::time_point start = Clock::now();
  EXPECT_FALSE(event.Wait(200));
  EXPECT_GE(Clock::now() - start, milliseconds(190));
  EXPECT_LT(Clock::now() - start, milliseconds(2000));

  struct sigaction action {};
  struct sigaction previous {};
  action.sa_handler = CountInterruption;  // no SA_RESTART: the wait fails with EINTR
  ASSERT_EQ(0, ::sigaction(SIGUSR1, &action, &previous));
  std::atomic<bool> done{false};
  Clock::duration elapsed{};
  std::thread waiter([&] {
    const Clock::time_point start = Clock::now();
    EXPECT_FALSE(event.Wait(400));
    elapsed = Clock::now() - start;
    done = true;
  });
  // Restarting with the full time would keep it waiting as long as this goes on.
  for (int i = 0; i < 60 && !done; ++i) {
    std::this_thread::sleep_for(milliseconds(50));
    if (!done) ::pthread_kill(waiter.native_handle(), SIGUSR1);
  }
  waiter.join();
  ::sigaction(SIGUSR1, &previous, nullptr);
  EXPECT_GT(gInterruptions.load(), 0);
  EXPECT_GE(elapsed, milliseconds(390));
  EXPECT_LT(elapsed, milliseconds(2000));
}

TEST_F(NamedEventTest, ObjectsShareTheSemaphoreOfTheirNameAndRootOnly) {
  NamedEvent event(kName);
  NamedEvent sameName(kName);
  NamedEvent otherName(kManualName);
  {
    test::ScratchRoot otherRoot;
    NamedEvent elsewhere(kName);
    elsewhere.Set();
    EXPECT_FALSE(event.TryWait());
    RemoveNamedEvent(kName);
  }
  event.Set();
  EXPECT_FALSE(otherName.TryWait());
  EXPECT_TRUE(sameName.TryWait());
}

TEST_F(NamedEventTest, RemovedSetIsGoneAndAllocatedAfreshOnTheNextOpen) {
  NamedEvent event(kName);
  const int removedId = event.Semaphore().setId;
  RemoveNamedEvent(kName);
  struct semid_ds info;
  EXPECT_NE(0, ::semctl(removedId, 0, IPC_STAT, &info)) << "the set is gone";
  EXPECT_THROW(event.Set(), PosixError);
  NamedEvent again(kName);
  again.Set();
  EXPECT_TRUE(again.TryWait());
}

}  // namespace
}  // namespace kx::tal::osdep
