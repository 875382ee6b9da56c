#include "daemon/file_operations.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <vector>

#include "daemon/below_root.h"
#include "kx/tal/osdep/posix_io.h"

namespace kx::daemon {
namespace {

constexpr char kTemporarySuffix[] = ".kxsid-tmp";

[[noreturn]] void Fail(const std::string& what, const std::string& path) {
  const int error = errno;
  const char* link = error == ELOOP ? ", a symbolic link or below one" : "";
  throw std::system_error(error, std::generic_category(), what + " " + path + link);
}

void WriteAll(int fd, const char* data, size_t size, const std::string& path) {
  if (!tal::osdep::WriteAll(fd, data, size)) Fail("cannot write", path);
}

// The name of the temporary file beside the entry at `path`, cleared of what
// an interrupted replacement left there.
std::string ClearedTemporaryName(const EntryBelowRoot& entry, const std::string& path) {
  std::string temporary = entry.Name() + std::string(kTemporarySuffix);
  if (::unlinkat(entry.Directory(), temporary.c_str(), 0) != 0 && errno != ENOENT) {
    Fail("cannot remove", TemporaryPathFor(path));
  }
  return temporary;
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

std::string TemporaryPathFor(const std::string& path) { return path + kTemporarySuffix; }

bool LStat(const std::string& path, struct stat& info) {
  const EntryBelowRoot entry(path);
  if (entry.IsOpen() && ::fstatat(entry.Directory(), entry.Name(), &info, AT_SYMLINK_NOFOLLOW) == 0) return true;
  if (errno != ENOENT && errno != ENOTDIR) Fail("cannot examine", path);
  return false;
}

void RemoveFileIfPresent(const std::string& path) {
  const EntryBelowRoot entry(path);
  if (entry.IsOpen() && ::unlinkat(entry.Directory(), entry.Name(), 0) == 0) return;
  if (errno != ENOENT) Fail("cannot remove", path);
}

tal::osdep::FileDescriptor OpenRegularFile(const std::string& path, struct stat& info) {
  tal::osdep::FileDescriptor file = OpenBelowRoot(path, O_RDONLY | O_NOCTTY | O_NONBLOCK);
  if (!file.IsOpen()) Fail("cannot open", path);
  if (::fstat(file.Get(), &info) != 0) Fail("cannot examine", path);
  if (!S_ISREG(info.st_mode)) {
    errno = EINVAL;
    Fail("not a regular file:", path);
  }
  return file;
}

std::string ReadRegularFile(const std::string& path, struct stat& info) {
  const tal::osdep::FileDescriptor file = OpenRegularFile(path, info);
  // One byte more than its size tells a file that grew meanwhile.
  std::string content(static_cast<size_t>(info.st_size) + 1, '\0');
  const ssize_t size = tal::osdep::ReadUpTo(file.Get(), content.data(), content.size());
  if (size < 0) Fail("cannot read", path);
  if (static_cast<size_t>(size) == content.size()) {
    errno = EAGAIN;
    Fail("changed while read:", path);
  }
  content.resize(static_cast<size_t>(size));
  return content;
}

void ReplaceFile(const std::string& path, const std::function<void(int fd)>& fill, const FileAttributes& attributes) {
  const EntryBelowRoot entry = ReachBelowRoot(path);
  const int directory = entry.Directory();
  const std::string temporary = ClearedTemporaryName(entry, path);
  tal::osdep::FileDescriptor file =
      tal::osdep::OpenAt(directory, temporary, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
  if (!file.IsOpen()) Fail("cannot create", TemporaryPathFor(path));
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
    if (::renameat(directory, temporary.c_str(), directory, entry.Name()) != 0) Fail("cannot replace", path);
  } catch (...) {
    ::unlinkat(directory, temporary.c_str(), 0);
    throw;
  }
}

void ReplaceFileWithText(const std::string& path, const std::string& text, const FileAttributes& attributes) {
  ReplaceFile(
      path, [&](int fd) { WriteAll(fd, text.data(), text.size(), path); }, attributes);
}

void ReplaceFileWithCopy(const std::string& path, const std::string& source, const FileAttributes& attributes) {
  struct stat info {};
  const tal::osdep::FileDescriptor from = OpenRegularFile(source, info);
  ReplaceFile(
      path, [&](int fd) { CopyContent(from.Get(), fd, source); }, attributes);
}

void ReplaceWithSymlink(const std::string& path, const std::string& linkText, uid_t owner, gid_t group) {
  const EntryBelowRoot entry = ReachBelowRoot(path);
  const int directory = entry.Directory();
  const std::string temporary = ClearedTemporaryName(entry, path);
  if (::symlinkat(linkText.c_str(), directory, temporary.c_str()) != 0) {
    Fail("cannot create the link", TemporaryPathFor(path));
  }
  if ((owner != static_cast<uid_t>(-1) || group != static_cast<gid_t>(-1)) &&
      ::fchownat(directory, temporary.c_str(), owner, group, AT_SYMLINK_NOFOLLOW) != 0) {
    ::unlinkat(directory, temporary.c_str(), 0);
    Fail("cannot set the owner of", path);
  }
  if (::renameat(directory, temporary.c_str(), directory, entry.Name()) != 0) {
    ::unlinkat(directory, temporary.c_str(), 0);
    Fail("cannot replace", path);
  }
}

void CopyEntry(const std::string& from, const std::string& to) {
  const EntryBelowRoot source = ReachBelowRoot(from);
  struct stat info {};
  if (::fstatat(source.Directory(), source.Name(), &info, AT_SYMLINK_NOFOLLOW) != 0) Fail("cannot examine", from);
  if (S_ISLNK(info.st_mode)) {
    std::vector<char> text(static_cast<size_t>(info.st_size) + 1);
    const ssize_t length = ::readlinkat(source.Directory(), source.Name(), text.data(), text.size());
    if (length < 0 || static_cast<size_t>(length) >= text.size()) Fail("cannot read the link", from);
    ReplaceWithSymlink(to, std::string(text.data(), static_cast<size_t>(length)), info.st_uid, info.st_gid);
    return;
  }
  const tal::osdep::FileDescriptor file = OpenRegularFile(from, info);
  ReplaceFile(
      to, [&](int fd) { CopyContent(file.Get(), fd, from); },
      FileAttributes{static_cast<mode_t>(info.st_mode & 07777), info.st_uid, info.st_gid});
}

void LinkOrCopyEntry(const std::string& from, const std::string& to) {
  const EntryBelowRoot source = ReachBelowRoot(from);
  const EntryBelowRoot target = ReachBelowRoot(to);
  const std::string temporary = ClearedTemporaryName(target, to);
  // Flags 0: a link is linked itself, not what it points to.
  if (::linkat(source.Directory(), source.Name(), target.Directory(), temporary.c_str(), 0) != 0) {
    CopyEntry(from, to);
    return;
  }
  const int renamed = ::renameat(target.Directory(), temporary.c_str(), target.Directory(), target.Name());
  const int error = errno;
  // Renaming a name onto another link of the same inode leaves both in place.
  ::unlinkat(target.Directory(), temporary.c_str(), 0);
  errno = error;
  if (renamed != 0) Fail("cannot replace", to);
}

void AppendDurably(int fd, const std::string& text, const std::string& pathForMessages) {
  WriteAll(fd, text.data(), text.size(), pathForMessages);
  if (::fdatasync(fd) != 0) Fail("cannot sync", pathForMessages);
}

void SyncDirectory(const std::string& directory) {
  const tal::osdep::FileDescriptor dir = OpenBelowRoot(directory, O_RDONLY | O_DIRECTORY);
  if (!dir.IsOpen() || ::fsync(dir.Get()) != 0) Fail("cannot sync", directory);
}

}  // namespace kx::daemon
