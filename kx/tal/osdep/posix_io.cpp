#include "kx/tal/osdep/posix_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>

namespace kx::tal::osdep {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  if (this != &other) Reset(other.Release());
  return *this;
}

int FileDescriptor::Release() {
  const int fd = fd_;
  fd_ = -1;
  return fd;
}

void FileDescriptor::Reset(int fd) {
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
}

int FileDescriptor::Close() {
  const int result = fd_ >= 0 ? ::close(fd_) : 0;
  fd_ = -1;
  return result;
}

FileDescriptor Open(const std::string& path, int flags, mode_t mode) {
  return FileDescriptor(RetryOnInterrupt([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); }));
}

FileDescriptor OpenAt(int directory, const std::string& name, int flags, mode_t mode) {
  return FileDescriptor(RetryOnInterrupt([&] { return ::openat(directory, name.c_str(), flags | O_CLOEXEC, mode); }));
}

bool WriteAll(int fd, const void* data, size_t size) noexcept {
  const char* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t written = RetryOnInterrupt([&] { return ::write(fd, bytes, size); });
    if (written <= 0) return false;
    bytes += written;
    size -= static_cast<size_t>(written);
  }
  return true;
}

bool ReadExactly(int fd, void* data, size_t size) noexcept {
  errno = 0;
  return ReadUpTo(fd, data, size) == static_cast<ssize_t>(size);
}

ssize_t ReadUpTo(int fd, void* data, size_t size) noexcept {
  char* bytes = static_cast<char*>(data);
  size_t total = 0;
  while (total < size) {
    const ssize_t got = RetryOnInterrupt([&] { return ::read(fd, bytes + total, size - total); });
    if (got < 0) return -1;
    if (got == 0) break;
    total += static_cast<size_t>(got);
  }
  return static_cast<ssize_t>(total);
}

std::optional<std::string> ReadSmallRegularFile(const std::string& path, size_t maxBytes, bool followLinks) {
  const FileDescriptor file = Open(path, O_RDONLY | O_NONBLOCK | (followLinks ? 0 : O_NOFOLLOW));
  struct stat info;
  if (!file.IsOpen() || ::fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
  if (static_cast<uint64_t>(info.st_size) > maxBytes) return std::nullopt;
  // One byte more than the file's size tells apart a file that grew meanwhile.
  std::string content(static_cast<size_t>(info.st_size) + 1, '\0');
  const ssize_t size = ReadUpTo(file.Get(), content.data(), content.size());
  if (size < 0 || static_cast<size_t>(size) == content.size()) return std::nullopt;
  content.resize(static_cast<size_t>(size));
  return content;
}

}  // namespace kx::tal::osdep
