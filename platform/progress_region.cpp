#include "platform/progress_region.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "exchange/ipc_names.h"
#include "kx/tal/exception/exception.h"
#include "kx/tal/exception/os_exception.h"
#include "kx/tal/log.h"
#include "kx/tal/osdep/posix_io.h"
#include "kx/tal/osdep/shared_file.h"
#include "kx/tal/path.h"
#include "platform/ownership.h"

namespace kx::platform {
namespace {

using tal::logmask::kError2;

constexpr mode_t kRegionMode = 0660;  // rw-rw----

// Reads from the start of the file until `size` bytes or its end: the count, or -1.
ssize_t ReadFromStart(int fd, char* data, size_t size) {
  size_t done = 0;
  while (done < size) {
    const ssize_t count =
        tal::osdep::RetryOnInterrupt([&] { return ::pread(fd, data + done, size - done, static_cast<off_t>(done)); });
    if (count < 0) return -1;
    if (count == 0) break;
    done += static_cast<size_t>(count);
  }
  return static_cast<ssize_t>(done);
}

// -1 (no change) for a name the system does not know.
template <typename Id>
Id IdOrUnchanged(int64_t id) {
  return id < 0 ? static_cast<Id>(-1) : static_cast<Id>(id);
}

}  // namespace

std::unique_ptr<tal::osdep::SimpleSharedMemory> OpenProgressRegion(tal::osdep::NamedMutex* mutex) {
  const std::string path = tal::osdep::SharedFilePath(exchange::kProgressRegionName);
  tal::CreateDirectories(tal::DirectoryPart(path), 0777);
  const tal::osdep::FileDescriptor file =
      tal::osdep::Open(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK, S_IRUSR | S_IWUSR);
  if (!file.IsOpen()) KX_THROW(tal::osdep::PosixError);
  if (::fchown(file.Get(), IdOrUnchanged<uid_t>(GetUserID(kDefaultOwner)),
               IdOrUnchanged<gid_t>(GetGroupID(kDefaultGroup))) != 0) {
    KX_LOG(kError2, "Failed call to chown for " + path);
  }
  if (::fchmod(file.Get(), kRegionMode) != 0) KX_LOG(kError2, "Failed call to chmod for " + path);
  return std::make_unique<tal::osdep::SimpleSharedMemory>(exchange::kProgressRegionName, exchange::kProgressRegionSize,
                                                          mutex);
}

std::string ReadProgressText(const tal::osdep::SimpleSharedMemory& region) {
  const tal::osdep::FileDescriptor file =
      tal::osdep::Open(tal::osdep::SharedFilePath(region.Name()), O_RDONLY | O_NONBLOCK);
  if (!file.IsOpen()) {
    if (errno == ENOENT) return std::string();
    KX_THROW(tal::osdep::PosixError);
  }
  std::string content(region.Size(), '\0');
  const ssize_t size = ReadFromStart(file.Get(), content.data(), content.size());
  if (size < 0) KX_THROW(tal::osdep::PosixError);
  // Shorter than the region: cut by another process.
  if (static_cast<size_t>(size) < content.size()) KX_THROW(tal::exception::SharedMemoryCorrupted);
  uint32_t length;
  std::memcpy(&length, content.data(), sizeof length);
  if (length != region.Size()) KX_THROW(tal::exception::SharedMemoryCorrupted);
  const size_t start = tal::osdep::SimpleSharedMemory::kDataPosition;
  const size_t end = content.find('\0', start);
  return content.substr(start, (end == std::string::npos ? content.size() : end) - start);
}

}  // namespace kx::platform
