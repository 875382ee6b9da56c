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
#include "kx/tal/log.h"

namespace kx::tal::osdep {
namespace {

// Reports the name the kernel shows for the thread that runs proc().
class NameReportingThread : public Thread {
 public:
  int proc() override {
    const long tid = ::syscall(SYS_gettid);
    std::ifstream comm("/proc/self/task/" + std::to_string(tid) + "/comm");
    std::getline(comm, shownName);
    return 42;
  }
  std::string shownName;
};

TEST(ThreadTest, RunsProcUnderItsNameAndJoinReturnsTheResult) {
  NameReportingThread thread;
  thread.Start("orlaRestartSys");
  EXPECT_EQ(42, thread.Join());
  EXPECT_EQ("orlaRestartSys", thread.shownName);
  EXPECT_FALSE(thread.IsRunning());

  // Started again after the join; a long name is cut to what the kernel keeps.
  thread.Start("orla-name-longer-than-fifteen");
  EXPECT_EQ(42, thread.Join());
  EXPECT_EQ("orla-name-longe", thread.shownName);
  EXPECT_EQ("orla-name-longe", thread.Name());
}

// Runs until the test opens its gate.
class GatedThread : public Thread {
 public:
  explicit GatedThread(std::shared_future<void> gate) : gate_(std::move(gate)) {}
  int proc() override {
    gate_.wait();
    return 7;
  }

 private:
  std::shared_future<void> gate_;
};

TEST(ThreadTest, IsRunningUntilProcReturnsAndCannotBeStartedTwice) {
  std::promise<void> gate;
  GatedThread thread(gate.get_future().share());
  EXPECT_THROW(thread.Join(), exception::InvalidOperation);

  thread.Start("orlaSignalSid");
  EXPECT_TRUE(thread.IsRunning());
  EXPECT_THROW(thread.Start("orlaSignalSid"), exception::InvalidOperation);
  gate.set_value();
  EXPECT_EQ(7, thread.Join());
  EXPECT_FALSE(thread.IsRunning());
}

class ThrowingThread : public Thread {
 public:
  int proc() override { throw std::runtime_error("boom"); }
};

TEST(ThreadTest, ExceptionFromProcIsLoggedAndGivesTheExceptionResult) {
  std::string logged;
  SetLogCapture([&logged](uint32_t, const std::string& text) { logged += text; });
  ThrowingThread thread;
  thread.Start("orla-mDns");
  EXPECT_EQ(Thread::kExceptionResult, thread.Join());
  SetLogCapture(nullptr);
  EXPECT_NE(std::string::npos, logged.find("orla-mDns"));
  EXPECT_NE(std::string::npos, logged.find("boom"));
}

// proc() keeps running for a while after it has started; it touches only
// state outside the object, as the base destructor may be waiting for it.
class SlowThread : public Thread {
 public:
  SlowThread(std::atomic<bool>& started, std::atomic<bool>& finished)
      : started_(started), finished_(finished) {}
  int proc() override {
    std::atomic<bool>& finished = finished_;
    started_.store(true);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    finished.store(true);
    return 0;
  }

 private:
  std::atomic<bool>& started_;
  std::atomic<bool>& finished_;
};

TEST(ThreadTest, DestructorWaitsForAThreadNotJoined) {
  std::atomic<bool> started{false};
  std::atomic<bool> finished{false};
  {
    SlowThread thread(started, finished);
    thread.Start("orla-slow");
    while (!started.load()) std::this_thread::yield();
  }
  EXPECT_TRUE(finished.load());
}

}  // namespace
}  // namespace kx::tal::osdep
