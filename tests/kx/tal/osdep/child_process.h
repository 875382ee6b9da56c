#pragma once
// Runs a function in a forked child process. The child leaves with _exit, so the
// parent's destructors and exit handlers never run twice.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace kx::test {

// A pipe on which the child tells the parent that it has reached a point.
class ReadySignal {
 public:
  ReadySignal() { (void)!::pipe(fds_); }
  ~ReadySignal() {
    ::close(fds_[0]);
    ::close(fds_[1]);
  }
  void Send() { (void)!::write(fds_[1], "r", 1); }
  // False when the child ended without sending.
  bool Wait() {
    ::close(fds_[1]);
    fds_[1] = -1;
    char byte;
    ssize_t n;
    while ((n = ::read(fds_[0], &byte, 1)) < 0 && errno == EINTR) {
    }
    return n == 1;
  }

 private:
  int fds_[2] = {-1, -1};
};

class ChildProcess {
 public:
  // body() returns the child's exit code; an exception gives 99.
  template <typename Body>
  explicit ChildProcess(Body body) : pid_(::fork()) {
    if (pid_ != 0) return;
    int code = 99;
    try {
      code = body();
    } catch (...) {
    }
    ::_exit(code);
  }
  ~ChildProcess() {
    Kill();
    Wait();
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void Kill() {
    if (pid_ > 0) ::kill(pid_, SIGKILL);
  }
  // The exit code, or 128 + the signal that ended the child; -1 once reaped.
  int Wait() {
    int status = 0;
    if (pid_ <= 0) return -1;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

 private:
  pid_t pid_;
};

// Runs body() in a child and returns its exit code.
template <typename Body>
int RunInChild(Body body) {
  return ChildProcess(body).Wait();
}

}  // namespace kx::test
