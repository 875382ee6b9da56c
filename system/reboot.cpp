#include "system/reboot.h"

#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "kx/tal/path.h"
#include "system/log_err.h"

namespace kx::system {
namespace {

constexpr int kPolls = 5;
constexpr long kPollIntervalNs = 100000000;  // 100 ms

}  // namespace

std::string RebootCommandPath() { return tal::RootedPath("/sbin/reboot"); }

void Reboot() {
  // Built before vfork: the child may do nothing but exec or _exit.
  const std::string command = RebootCommandPath();
  const char* path = command.c_str();
  const pid_t child = ::vfork();
  if (child < 0) {
    logErr("Failed to vfork child process in which to reboot", errno);
    return;
  }
  if (child == 0) {
    ::execl(path, path, static_cast<char*>(nullptr));
    ::_exit(1);
  }
  for (int poll = 0; poll < kPolls; ++poll) {
    int status = 0;
    if (::waitpid(child, &status, WNOHANG) == child) {
      if (WIFEXITED(status) && WEXITSTATUS(status) != 0) {
        logErr("User did not have permission to reboot the system", EACCES);
      }
      return;
    }
    const struct timespec interval = {0, kPollIntervalNs};
    ::nanosleep(&interval, nullptr);
  }
}

}  // namespace kx::system
