#include "kx/tal/osdep/simple_shared_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <optional>

#include "kx/tal/exception/exception.h"
#include "kx/tal/exception/os_exception.h"
#include "kx/tal/osdep/posix_io.h"
#include "kx/tal/osdep/shared_file.h"

namespace kx::tal::osdep {

namespace {

void ResizeRetryingInterrupts(int fd, off_t size) {
  if (RetryOnInterrupt([&] { return ::ftruncate(fd, size); }) != 0) KX_THROW(PosixError);
}

// Holds the region's mutex for the scope, when the region has one.
class OptionalLock {
 public:
  explicit OptionalLock(NamedMutex* mutex) {
    if (mutex != nullptr) lock_.emplace(*mutex);
  }

 private:
  std::optional<NamedMutexLock> lock_;
};

}  // namespace

SimpleSharedMemory::SimpleSharedMemory(const std::string& name, uint32_t size, NamedMutex* mutex)
    : name_(name), size_(size), mutex_(mutex) {
  // off_t may be 32 bits wide on a target built without 64-bit file offsets.
  constexpr auto kLargestFileSize = static_cast<uint64_t>(std::numeric_limits<off_t>::max());
  if (size_ < kDataPosition || uint64_t{size_} > kLargestFileSize) {
    KX_THROW(exception::InvalidArgument);
  }
  SharedFile file(SharedFilePath(name_), O_RDWR);
  // Keeps a second opener out until the file has its size and length word.
  file.Lock();
  struct stat status;
  if (::fstat(file.Descriptor(), &status) != 0) KX_THROW(PosixError);
  const bool needsLengthWord = status.st_size < static_cast<off_t>(size_);
  if (needsLengthWord) ResizeRetryingInterrupts(file.Descriptor(), static_cast<off_t>(size_));

  void* mapped = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, file.Descriptor(), 0);
  if (mapped == MAP_FAILED) KX_THROW(PosixError);
  base_ = static_cast<char*>(mapped);
  if (needsLengthWord) std::memcpy(base_, &size_, sizeof size_);
  // The mapping keeps the open file alive after close, and with it the flock:
  // it must be released explicitly.
  file.Unlock();
}

SimpleSharedMemory::~SimpleSharedMemory() { ::munmap(base_, size_); }

void SimpleSharedMemory::CheckIntegrity(uint32_t offset) const {
  if (offset >= size_) KX_THROW(exception::BufferOverflow);
  uint32_t storedLength;
  std::memcpy(&storedLength, base_, sizeof storedLength);
  if (storedLength != size_) KX_THROW(exception::SharedMemoryCorrupted);
}

void SimpleSharedMemory::CheckDataOffset(uint32_t offset) const {
  if (offset < kDataPosition) KX_THROW(exception::InvalidArgument);
}

std::string SimpleSharedMemory::ReadText(uint32_t offset) const {
  CheckDataOffset(offset);
  OptionalLock lock(mutex_);
  CheckIntegrity(offset);
  const char* text = base_ + offset;
  const size_t available = size_ - offset;
  const void* terminator = std::memchr(text, '\0', available);
  return std::string(text, terminator != nullptr ? static_cast<const char*>(terminator) - text : available);
}

void SimpleSharedMemory::WriteText(const std::string& text, uint32_t offset) {
  CheckDataOffset(offset);
  OptionalLock lock(mutex_);
  CheckIntegrity(offset);
  if (text.size() >= size_ - offset) KX_THROW(exception::BufferOverflow);
  std::memcpy(base_ + offset, text.data(), text.size());
  base_[offset + text.size()] = '\0';
}

}  // namespace kx::tal::osdep
