#include "platform/controller_state.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "kx/tal/path.h"

namespace kx::platform {
namespace {

constexpr char kInstallMode[] = "Install Mode";

}  // namespace

std::string ConfigurationDirectory() { return tal::RootedPath("/etc/brenmar/share"); }

std::string ActionExchangeDirectory() {
  return tal::RootedPath(IsSafeMode() ? "/mnt/userfs/.syscfg-action" : "/.syscfg-action");
}

std::string SafeModeMarkerPath() { return tal::RootedPath("/etc/brenmar/safemode"); }

std::string SystemStatePath() { return tal::RootedPath("/tmp/kx_system_state"); }

bool IsSafeMode() { return tal::PathExists(SafeModeMarkerPath()); }

bool IsInstallMode() {
  // The file lies in a directory every user can write to: read it only when it
  // is a regular file, and no more than the comparison needs.
  const std::string path = SystemStatePath();
  int fd;
  while ((fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) < 0 && errno == EINTR) {
  }
  if (fd < 0) return false;
  struct stat info;
  char content[sizeof kInstallMode + 1];
  ssize_t size = -1;
  if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode)) {
    while ((size = ::read(fd, content, sizeof content)) < 0 && errno == EINTR) {
    }
  }
  ::close(fd);
  const size_t expected = sizeof kInstallMode - 1;
  return size == static_cast<ssize_t>(expected) && std::memcmp(content, kInstallMode, expected) == 0;
}

}  // namespace kx::platform
