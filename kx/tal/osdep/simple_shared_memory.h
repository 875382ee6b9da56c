#pragma once
// A region of memory shared between processes: the shared file
// "<SharedFileDirectory()>/<name>" mapped whole. Its first 32-bit word (native
// byte order) holds the region's length, so a process that opened the region
// with another length, or a stray write over the start, is detected. The data
// follow the length word.
//
// Writer and reader may be different processes: each opens the region by the same
// name and size, and both pass a NamedMutex of the same name to keep each other
// out while text is copied.

#include <cstdint>
#include <string>

#include "kx/tal/osdep/named_mutex.h"

namespace kx::tal::osdep {

class SimpleSharedMemory {
 public:
  // Offset of the first byte after the length word.
  static constexpr uint32_t kDataPosition = sizeof(uint32_t);

  // Opens the region, creating the file (mode 0666) when missing. A file that is
  // new, empty or shorter than `size` is extended to `size` and given the length
  // word; an existing file keeps its word. `mutex`, when given, must outlive the
  // region. Throws InvalidArgument for a name that is empty, ".", ".." or holds
  // "/", or a size too small for the length word; PosixError when the file cannot
  // be opened, sized or mapped.
  SimpleSharedMemory(const std::string& name, uint32_t size, NamedMutex* mutex = nullptr);
  ~SimpleSharedMemory();
  SimpleSharedMemory(const SimpleSharedMemory&) = delete;
  SimpleSharedMemory& operator=(const SimpleSharedMemory&) = delete;

  // Throws BufferOverflow when offset is at or past the region's length, and
  // SharedMemoryCorrupted when the stored length word differs from it.
  void CheckIntegrity(uint32_t offset) const;

  // The NUL-terminated text at `offset`, or everything up to the region's end
  // when no NUL comes first. Checks integrity, then copies under the mutex (if
  // any). Throws InvalidArgument for an offset inside the length word.
  std::string ReadText(uint32_t offset = kDataPosition) const;

  // Writes text and a terminating NUL at `offset` under the mutex (if any), after
  // the integrity check. Throws BufferOverflow, leaving the region unchanged,
  // when they do not fit; InvalidArgument for an offset inside the length word.
  void WriteText(const std::string& text, uint32_t offset = kDataPosition);

  uint32_t Size() const { return size_; }
  const std::string& Name() const { return name_; }

 private:
  void CheckDataOffset(uint32_t offset) const;

  std::string name_;
  uint32_t size_;
  NamedMutex* mutex_;
  char* base_ = nullptr;
};

}  // namespace kx::tal::osdep
