#include "host/plugin_dispatcher.h"

namespace kx::webhost {

PluginDispatcher::PluginDispatcher(unsigned workers) : workerCount_(workers == 0 ? 1 : workers) {
  for (unsigned i = 0; i < workerCount_; ++i) workers_.emplace_back([this] { Work(); });
}

bool PluginDispatcher::Submit(const std::string& method, std::function<void()> run, std::function<void()> cancel) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_) return false;
    queue_.push_back({method, std::move(run), std::move(cancel)});
  }
  changed_.notify_all();
  return true;
}

void PluginDispatcher::Stop() {
  std::deque<Call> cancelled;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_ && workers_.empty()) return;
    stopping_ = true;
    cancelled.swap(queue_);
  }
  changed_.notify_all();
  for (Call& call : cancelled) call.cancel();
  for (std::thread& worker : workers_) worker.join();
  workers_.clear();
}

std::deque<PluginDispatcher::Call>::iterator PluginDispatcher::NextRunnable() {
  const unsigned free = workerCount_ - busy_;
  for (auto call = queue_.begin(); call != queue_.end(); ++call) {
    const auto running = running_.find(call->method);
    const bool hasRunning = running != running_.end() && running->second > 0;
    if (!hasRunning || free > 1 || workerCount_ == 1) return call;
  }
  return queue_.end();
}

void PluginDispatcher::Work() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    std::deque<Call>::iterator next;
    changed_.wait(lock, [&] { return stopping_ || (next = NextRunnable()) != queue_.end(); });
    if (stopping_) return;
    Call call = std::move(*next);
    queue_.erase(next);
    ++busy_;
    ++running_[call.method];
    lock.unlock();
    call.run();
    lock.lock();
    --busy_;
    if (--running_[call.method] == 0) running_.erase(call.method);
    lock.unlock();
    changed_.notify_all();
    lock.lock();
  }
}

}  // namespace kx::webhost
