#include "host/shutdown_signal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace kx::webhost {
namespace {

int gPipe[2] = {-1, -1};

void OnSignal(int number) {
  const int savedErrno = errno;
  const unsigned char byte = static_cast<unsigned char>(number);
  [[maybe_unused]] const ssize_t ignored = ::write(gPipe[1], &byte, 1);
  errno = savedErrno;
}

// Unlike SIG_IGN, a handler does not pass on to programs started by exec.
void OnBrokenPipe(int) {}

}  // namespace

void InstallShutdownHandlers() {
  if (::pipe2(gPipe, O_CLOEXEC | O_NONBLOCK) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  struct sigaction action {};
  action.sa_handler = OnSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
  action.sa_handler = OnBrokenPipe;
  ::sigaction(SIGPIPE, &action, nullptr);
}

int WaitForShutdownSignal() {
  const int flags = ::fcntl(gPipe[0], F_GETFL);
  ::fcntl(gPipe[0], F_SETFL, flags & ~O_NONBLOCK);
  unsigned char byte = 0;
  while (::read(gPipe[0], &byte, 1) != 1) {
  }
  return byte;
}

}  // namespace kx::webhost
