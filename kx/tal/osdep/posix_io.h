#pragma once
// POSIX descriptors and the calls on them, written once: an owner that closes,
// retrying what a signal interrupts, reading and writing whole buffers, and
// reading a small regular file without ever blocking on a FIFO or device.

#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>

namespace kx::tal::osdep {

// Owns an open file descriptor (or none, -1) and closes it when it goes.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() { Reset(); }
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.Release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  int Get() const { return fd_; }
  bool IsOpen() const { return fd_ >= 0; }
  // Hands the descriptor over; this object then owns none.
  int Release();
  // Closes the one owned (if any) and takes `fd`.
  void Reset(int fd = -1);
  // Closes now, so that a failing close is seen: 0, or -1 with errno set.
  int Close();

 private:
  int fd_ = -1;
};

// Calls `call` again while it fails with -1 and errno EINTR.
template <typename Call>
auto RetryOnInterrupt(Call call) {
  decltype(call()) result;
  do {
    result = call();
  } while (result == -1 && errno == EINTR);
  return result;
}

// open(2), retried on EINTR, with O_CLOEXEC added. The descriptor is not open
// (errno set) on failure.
FileDescriptor Open(const std::string& path, int flags, mode_t mode = 0);
FileDescriptor OpenAt(int directory, const std::string& name, int flags, mode_t mode = 0);

// Writes all `size` bytes. False (errno set) on failure. Async-signal-safe, so a
// forked child may use it.
bool WriteAll(int fd, const void* data, size_t size) noexcept;
// Reads exactly `size` bytes. False at end of file (errno 0) or on an error.
// Async-signal-safe.
bool ReadExactly(int fd, void* data, size_t size) noexcept;
// Reads until `size` bytes or the end of the file: the count, or -1 (errno set).
ssize_t ReadUpTo(int fd, void* data, size_t size) noexcept;

// The content of a regular file of at most `maxBytes` bytes. Nothing when it is
// missing, not a regular file (a FIFO or device is opened without blocking and
// never read), a link while `followLinks` is false, longer, or unreadable.
std::optional<std::string> ReadSmallRegularFile(const std::string& path, size_t maxBytes, bool followLinks = true);

}  // namespace kx::tal::osdep
