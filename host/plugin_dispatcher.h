#pragma once
// Runs the plug-in's calls on workers of their own, so that the server's
// threads never wait for the plug-in and keep serving the file routes and new
// connections.
//
// A web method whose calls may wait long in the plug-in (FinalizeAction waits
// for the previous restart run) must not take every worker: a method that
// already has a call running may not take the last free worker, which stays for
// the methods that have none (Ping, Progress, ...). Calls wait in one queue and
// start in order of arrival among those allowed to.

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kx::webhost {

class PluginDispatcher {
 public:
  explicit PluginDispatcher(unsigned workers);
  ~PluginDispatcher() { Stop(); }
  PluginDispatcher(const PluginDispatcher&) = delete;
  PluginDispatcher& operator=(const PluginDispatcher&) = delete;

  // Queues `run` for a worker; `cancel` instead, on the stopping thread, when
  // the dispatcher stops before the call started. False once stopped (neither
  // is called then).
  bool Submit(const std::string& method, std::function<void()> run, std::function<void()> cancel);
  // Cancels the queued calls, waits for the running ones and ends the workers.
  void Stop();

 private:
  struct Call {
    std::string method;
    std::function<void()> run;
    std::function<void()> cancel;
  };
  void Work();
  // The first queued call allowed to start now; end() when none is.
  std::deque<Call>::iterator NextRunnable();

  const unsigned workerCount_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Call> queue_;
  std::map<std::string, unsigned> running_;  // calls running, by method
  unsigned busy_ = 0;
  bool stopping_ = false;
  std::vector<std::thread> workers_;
};

}  // namespace kx::webhost
