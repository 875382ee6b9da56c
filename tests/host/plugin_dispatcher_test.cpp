// The workers that call the plug-in: a flood of one slow method leaves a
// worker for the others, and stopping answers what is still queued.

#include "host/plugin_dispatcher.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

namespace {

using kx::webhost::PluginDispatcher;

// Calls that block until released, counting how many run at once.
struct SlowCalls {
  std::mutex mutex;
  std::condition_variable released;
  bool open = false;
  std::atomic<int> running{0}, most{0}, finished{0}, cancelled{0};

  std::function<void()> Run() {
    return [this] {
      const int now = ++running;
      for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {
      }
      std::unique_lock<std::mutex> lock(mutex);
      released.wait(lock, [&] { return open; });
      --running;
      ++finished;
    };
  }
  std::function<void()> Cancel() {
    return [this] { ++cancelled; };
  }
  void Release() {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      open = true;
    }
    released.notify_all();
  }
};

TEST(PluginDispatcher, AFloodOfOneMethodLeavesAWorkerForTheOthers) {
  PluginDispatcher dispatcher(3);
  SlowCalls finalize;
  for (int i = 0; i < 8; ++i) ASSERT_TRUE(dispatcher.Submit("FinalizeAction", finalize.Run(), finalize.Cancel()));
  // The workers take the calls in their own time: Ping comes once two run.
  for (int i = 0; i < 1000 && finalize.running < 2; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  std::promise<void> pinged;
  ASSERT_TRUE(dispatcher.Submit(
      "Ping", [&] { pinged.set_value(); }, [] {}));
  EXPECT_EQ(pinged.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
  EXPECT_EQ(finalize.most, 2) << "the last free worker is not taken by a method already running";
  finalize.Release();
  dispatcher.Stop();
  EXPECT_EQ(finalize.finished + finalize.cancelled, 8);
}

TEST(PluginDispatcher, StoppingCancelsWhatIsQueuedAndWaitsForWhatRuns) {
  PluginDispatcher dispatcher(2);
  SlowCalls calls;
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(dispatcher.Submit("Format", calls.Run(), calls.Cancel()));
  while (calls.running == 0) std::this_thread::yield();
  std::thread releaser([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    calls.Release();
  });
  dispatcher.Stop();
  releaser.join();
  EXPECT_EQ(calls.finished, 1);
  EXPECT_EQ(calls.cancelled, 4);
  EXPECT_FALSE(dispatcher.Submit(
      "Ping", [] {}, [] {}));
}

}  // namespace
