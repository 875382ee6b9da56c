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
  ReadySignal() {
    if (::pipe(fds_) != 0) fds_[0] = fds_[1] = -1;
  }
  ~ReadySignal() {
    ::close(fds_[0]);
    ::close(fds_[1]);
  }
  void Send() {
    const char byte = 1;
    (void)!::write(fds_[1], &byte, 1);
  }
  // False when the child ended without sending.
  bool Wait() {
    ::close(fds_[1]);
    fds_[1] = -1;
    char byte;
    ssize_t n;
    do {
      n = ::read(fds_[0], &byte, 1);
    } while (n < 0 && errno == EINTR);
    return n == 1;
  }

 private:
  int fds_[2];
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
    if (pid_ > 0) {
      Kill();
      Wait();
    }
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void Kill() { ::kill(pid_, SIGKILL); }

  // The exit code, or 128 + the signal that ended the child.
  int Wait() {
    if (pid_ < 0) return -1;
    int status = 0;
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
