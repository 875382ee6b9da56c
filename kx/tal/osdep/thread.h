#pragma once
// A named operating-system thread that runs the virtual proc() of an object.

#include <pthread.h>

#include <atomic>
#include <string>

namespace kx::tal::osdep {

class Thread {
 public:
  // The kernel keeps at most 15 characters of a thread name.
  static constexpr size_t kMaxNameLength = 15;
  // What Join() returns when proc() ended by an exception.
  static constexpr int kExceptionResult = -1;

  Thread() = default;
  // Joins a thread that was started and not yet joined, so none is left behind.
  // By then the derived part of the object is already destroyed, so a derived
  // class whose proc() uses its own members must stop and join the thread in its
  // own destructor.
  virtual ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  // The thread's work; its result is what Join() returns.
  virtual int proc() = 0;

  // Starts proc() on a new thread named `name` (cut to kMaxNameLength characters;
  // it shows in /proc/<pid>/task/<tid>/comm). A thread object can be started again
  // after Join(). Throws InvalidOperation when a previous run has not been
  // joined, PosixError when no thread can be created.
  void Start(const std::string& name);

  // Waits for proc() to return and hands back its result. Throws
  // InvalidOperation when there is no run to join.
  int Join();

  // True from Start() until proc() has returned.
  bool IsRunning() const { return running_.load(std::memory_order_acquire); }

  // The name given to the last Start(), as cut for the kernel.
  const std::string& Name() const { return name_; }

 private:
  static void* Run(void* self);

  pthread_t handle_{};
  bool joinable_ = false;
  std::atomic<bool> running_{false};
  std::string name_;
  int result_ = 0;
};

}  // namespace kx::tal::osdep
