#include "daemon/below_root.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <linux/openat2.h>
#include <string_view>
#include <system_error>
#include <vector>

#include "kx/tal/path.h"

namespace kx::daemon {
namespace {

using tal::osdep::FileDescriptor;

constexpr int kDirectoryFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

// The components of a path but "" and ".".
std::vector<std::string_view> Components(std::string_view path) {
  std::vector<std::string_view> parts;
  for (size_t start = 0; start <= path.size();) {
    size_t end = path.find('/', start);
    if (end == std::string_view::npos) end = path.size();
    const std::string_view part = path.substr(start, end - start);
    if (!part.empty() && part != ".") parts.push_back(part);
    start = end + 1;
  }
  return parts;
}

}  // namespace

FileDescriptor OpenDirectoryByKernelWalk(int root, const std::string& relativePath) {
#ifdef SYS_openat2
  open_how how{};
  how.flags = kDirectoryFlags;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
  for (;;) {
    const long fd = tal::osdep::RetryOnInterrupt(
        [&] { return ::syscall(SYS_openat2, root, relativePath.c_str(), &how, sizeof how); });
    // EAGAIN: a rename elsewhere raced the walk, which the kernel does not trust then.
    if (fd >= 0 || errno != EAGAIN) return FileDescriptor(static_cast<int>(fd));
  }
#else
  static_cast<void>(root);
  static_cast<void>(relativePath);
  errno = ENOSYS;
  return FileDescriptor();
#endif
}

FileDescriptor OpenDirectoryStepByStep(int root, const std::string& relativePath) {
  FileDescriptor directory(::fcntl(root, F_DUPFD_CLOEXEC, 0));
  for (const std::string_view part : Components(relativePath)) {
    if (!directory.IsOpen()) break;
    const std::string name(part);
    if (name == "..") {
      errno = EXDEV;
      return FileDescriptor();
    }
    FileDescriptor next = tal::osdep::OpenAt(directory.Get(), name, kDirectoryFlags | O_NOFOLLOW);
    if (!next.IsOpen() && errno == ENOTDIR) {
      // O_PATH | O_NOFOLLOW reaches a link itself, which then is no directory.
      struct stat info {};
      if (::fstatat(directory.Get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(info.st_mode)) {
        errno = ELOOP;
      } else {
        errno = ENOTDIR;
      }
    }
    directory = std::move(next);
  }
  return directory;
}

EntryBelowRoot::EntryBelowRoot(const std::string& hostPath) {
  const std::string root = tal::SystemRoot();
  const std::vector<std::string_view> rootParts = Components(root);
  const std::vector<std::string_view> parts = Components(hostPath);
  const auto absolute = [](const std::string& path) { return !path.empty() && path.front() == '/'; };
  bool below = absolute(root) == absolute(hostPath) && parts.size() >= rootParts.size();
  for (size_t i = 0; below && i < parts.size(); ++i) {
    below = i < rootParts.size() ? parts[i] == rootParts[i] : parts[i] != "..";
  }
  if (!below) {
    errno = EXDEV;
    return;
  }
  FileDescriptor rootDirectory = tal::osdep::Open(root, kDirectoryFlags);
  if (parts.size() == rootParts.size()) {
    directory_ = std::move(rootDirectory);
    name_ = ".";
    return;
  }
  std::string parent;
  for (size_t i = rootParts.size(); i + 1 < parts.size(); ++i) parent.append(parts[i]).append("/");
  name_ = parts.back();
  if (!rootDirectory.IsOpen() || parent.empty()) {
    directory_ = std::move(rootDirectory);
    return;
  }
  directory_ = OpenDirectoryByKernelWalk(rootDirectory.Get(), parent);
  // ENOSYS: a kernel before openat2; EPERM: a seccomp filter that predates it.
  if (!directory_.IsOpen() && (errno == ENOSYS || errno == EPERM)) {
    directory_ = OpenDirectoryStepByStep(rootDirectory.Get(), parent);
  }
}

EntryBelowRoot ReachBelowRoot(const std::string& hostPath) {
  EntryBelowRoot entry(hostPath);
  if (entry.IsOpen()) return entry;
  const int error = errno;
  throw std::system_error(error, std::generic_category(),
                          error == ELOOP   ? "a symbolic link lies on the way to " + hostPath
                          : error == EXDEV ? hostPath + " is not below the system root"
                                           : "cannot reach " + hostPath);
}

FileDescriptor OpenBelowRoot(const std::string& hostPath, int flags, mode_t mode) {
  const EntryBelowRoot entry(hostPath);
  if (!entry.IsOpen()) return FileDescriptor();
  return tal::osdep::OpenAt(entry.Directory(), entry.Name(), flags | O_NOFOLLOW, mode);
}

}  // namespace kx::daemon
