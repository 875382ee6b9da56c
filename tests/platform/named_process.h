#pragma once

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace kx::test {

// A child process whose command name, as the kernel reports it, is `name` (at
// most 15 characters): what the process finder compares. Killed when it goes.
class NamedProcess {
 public:
  explicit NamedProcess(const std::string& name) {
    int ready[2];
    if (::pipe(ready) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      ::prctl(PR_SET_NAME, name.c_str());
      if (::write(ready[1], "r", 1) == 1) {
        for (;;) ::pause();
      }
      ::_exit(1);
    }
    char byte;
    ::close(ready[1]);
    (void)!::read(ready[0], &byte, 1);
    ::close(ready[0]);
  }
  ~NamedProcess() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  NamedProcess(const NamedProcess&) = delete;
  NamedProcess& operator=(const NamedProcess&) = delete;
  pid_t Pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
};

}  // namespace kx::test
