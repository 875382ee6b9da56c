#include "kx/tal/osdep/thread.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>

#include "kx/tal/exception/exception.h"

namespace kx::tal::osdep {
namespace {

// Reports the name the kernel shows for the thread that runs proc(), waits for
// the test to open the gate, then returns 42 or throws.
class NameReportingThread : public Thread {
 public:
  int proc() override {
    std::ifstream comm("/proc/self/task/" + std::to_string(::syscall(SYS_gettid)) + "/comm");
    std::getline(comm, shownName);
    gate.wait();
    if (shouldThrow) throw std::runtime_error("boom");
    return 42;
  }
  std::shared_future<void> gate;
  bool shouldThrow = false;
  std::string shownName;
};

TEST(ThreadTest, RunsProcUnderItsNameAndJoinReturnsTheResult) {
  std::promise<void> open;
  NameReportingThread thread;
  thread.gate = open.get_future().share();
  EXPECT_THROW(thread.Join(), exception::InvalidOperation);
  thread.Start("orlaRestartSys");
  EXPECT_TRUE(thread.IsRunning());
  EXPECT_THROW(thread.Start("orlaRestartSys"), exception::InvalidOperation);
  open.set_value();
  EXPECT_EQ(42, thread.Join());
  EXPECT_EQ("orlaRestartSys", thread.shownName);
  EXPECT_FALSE(thread.IsRunning());

  // Started again after the join; a long name is cut to what the kernel keeps.
  thread.Start("orla-name-longer-than-fifteen");
  EXPECT_EQ(42, thread.Join());
  EXPECT_EQ("orla-name-longe", thread.shownName);

  // An exception from proc() ends the thread, not the process.
  thread.shouldThrow = true;
  thread.Start("orla-mDns");
  EXPECT_EQ(Thread::kExceptionResult, thread.Join());
}

// Sleeps, then sets a flag outside the object: the base destructor may be waiting for it.
class SlowThread : public Thread {
 public:
  explicit SlowThread(std::atomic<int>& stage) : stage_(stage) {}
  int proc() override {
    std::atomic<int>& stage = stage_;
    stage = 1;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    stage = 2;
    return 0;
  }

 private:
  std::atomic<int>& stage_;
};

TEST(ThreadTest, DestructorWaitsForAThreadNotJoined) {
  std::atomic<int> stage{0};
  {
    SlowThread thread(stage);
    thread.Start("orla-slow");
    while (stage == 0) std::this_thread::yield();
  }
  EXPECT_EQ(stage, 2);
}

}  // namespace
}  // namespace kx::tal::osdep
