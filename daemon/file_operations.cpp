#include "daemon/file_operations.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <vector>

#include "kx/tal/osdep/posix_io.h"
#include "kx/tal/path.h"

namespace kx::daemon {
namespace {

[[noreturn]] void Fail(const std::string& what, const std::string& path) {
  throw std::system_error(errno, std::generic_category(), what + " " + path);
}

void WriteAll(int fd, const char* data, size_t size, const std::string& path) {
  if (!tal::osdep::WriteAll(fd, data, size)) Fail("cannot write", path);
}

void CopyContent(int from, int to, const std::string& path) {
  std::vector<char> buffer(size_t{64} * 1024);
  for (;;) {
    const ssize_t got = tal::osdep::ReadUpTo(from, buffer.data(), buffer.size());
    if (got < 0) Fail("cannot read", path);
    if (got == 0) return;
    WriteAll(to, buffer.data(), static_cast<size_t>(got), path);
  }
}

}  // namespace

std::string TemporaryPathFor(const std::string& path) { return path + ".kxsid-tmp"; }

bool LStat(const std::string& path, struct stat& info) {
  if (::lstat(path.c_str(), &info) == 0) return true;
  if (errno != ENOENT && errno != ENOTDIR) Fail("cannot examine", path);
  return false;
}

void RemoveFileIfPresent(const std::string& path) {
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) Fail("cannot remove", path);
}

void ReplaceFile(const std::string& path, const std::function<void(int fd)>& fill, const FileAttributes& attributes) {
  const std::string temporary = TemporaryPathFor(path);
  RemoveFileIfPresent(temporary);
  tal::osdep::FileDescriptor file = tal::osdep::Open(temporary, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
  if (!file.IsOpen()) Fail("cannot create", temporary);
  try {
    fill(file.Get());
    // chown before chmod: a change of owner may clear set-ID bits.
    if ((attributes.owner != static_cast<uid_t>(-1) || attributes.group != static_cast<gid_t>(-1)) &&
        ::fchown(file.Get(), attributes.owner, attributes.group) != 0) {
      Fail("cannot set the owner of", path);
    }
    if (::fchmod(file.Get(), attributes.mode) != 0) Fail("cannot set the mode of", path);
    const timespec times[2] = {{0, UTIME_OMIT}, attributes.modified};
    if (attributes.modified.tv_nsec != UTIME_OMIT && ::futimens(file.Get(), times) != 0) {
      Fail("cannot set the time of", path);
    }
    if (::fsync(file.Get()) != 0) Fail("cannot sync", path);
    if (file.Close() != 0) Fail("cannot write", path);
    if (::rename(temporary.c_str(), path.c_str()) != 0) Fail("cannot replace", path);
  } catch (...) {
    ::unlink(temporary.c_str());
    throw;
  }
}

void ReplaceFileWithText(const std::string& path, const std::string& text, const FileAttributes& attributes) {
  ReplaceFile(
      path, [&](int fd) { WriteAll(fd, text.data(), text.size(), path); }, attributes);
}

void ReplaceFileWithCopy(const std::string& path, const std::string& source, const FileAttributes& attributes) {
  const tal::osdep::FileDescriptor from = tal::osdep::Open(source, O_RDONLY);
  if (!from.IsOpen()) Fail("cannot open", source);
  ReplaceFile(
      path, [&](int fd) { CopyContent(from.Get(), fd, source); }, attributes);
}

void ReplaceWithSymlink(const std::string& path, const std::string& linkText, uid_t owner, gid_t group) {
  const std::string temporary = TemporaryPathFor(path);
  RemoveFileIfPresent(temporary);
  if (::symlink(linkText.c_str(), temporary.c_str()) != 0) Fail("cannot create the link", temporary);
  if ((owner != static_cast<uid_t>(-1) || group != static_cast<gid_t>(-1)) &&
      ::lchown(temporary.c_str(), owner, group) != 0) {
    ::unlink(temporary.c_str());
    Fail("cannot set the owner of", path);
  }
  if (::rename(temporary.c_str(), path.c_str()) != 0) {
    ::unlink(temporary.c_str());
    Fail("cannot replace", path);
  }
}

void CopyEntry(const std::string& from, const std::string& to) {
  struct stat info {};
  if (::lstat(from.c_str(), &info) != 0) Fail("cannot examine", from);
  if (S_ISLNK(info.st_mode)) {
    std::vector<char> text(static_cast<size_t>(info.st_size) + 1);
    const ssize_t length = ::readlink(from.c_str(), text.data(), text.size());
    if (length < 0 || static_cast<size_t>(length) >= text.size()) Fail("cannot read the link", from);
    ReplaceWithSymlink(to, std::string(text.data(), static_cast<size_t>(length)), info.st_uid, info.st_gid);
    return;
  }
  if (!S_ISREG(info.st_mode)) {
    errno = EINVAL;
    Fail("neither a file nor a link:", from);
  }
  ReplaceFileWithCopy(to, from, FileAttributes{static_cast<mode_t>(info.st_mode & 07777), info.st_uid, info.st_gid});
}

void LinkOrCopyEntry(const std::string& from, const std::string& to) {
  const std::string temporary = TemporaryPathFor(to);
  RemoveFileIfPresent(temporary);
  // Flags 0: a link is linked itself, not what it points to.
  if (::linkat(AT_FDCWD, from.c_str(), AT_FDCWD, temporary.c_str(), 0) != 0) {
    CopyEntry(from, to);
    return;
  }
  const int renamed = ::rename(temporary.c_str(), to.c_str());
  const int error = errno;
  // Renaming a name onto another link of the same inode leaves both in place.
  ::unlink(temporary.c_str());
  errno = error;
  if (renamed != 0) Fail("cannot replace", to);
}

void AppendDurably(int fd, const std::string& text, const std::string& pathForMessages) {
  WriteAll(fd, text.data(), text.size(), pathForMessages);
  if (::fdatasync(fd) != 0) Fail("cannot sync", pathForMessages);
}

void SyncDirectory(const std::string& directory) {
  const tal::osdep::FileDescriptor dir = tal::osdep::Open(directory, O_RDONLY | O_DIRECTORY);
  if (!dir.IsOpen() || ::fsync(dir.Get()) != 0) Fail("cannot sync", directory);
}

}  // namespace kx::daemon
