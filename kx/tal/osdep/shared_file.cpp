#include "kx/tal/osdep/shared_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "kx/tal/exception/exception.h"
#include "kx/tal/exception/os_exception.h"
#include "kx/tal/osdep/posix_io.h"
#include "kx/tal/path.h"

namespace kx::tal::osdep {

namespace {

constexpr mode_t kSharedMode = 0666;

// Opens an existing file or creates it. Only the creator sets the mode, because
// the umask may have cut it and only the owner may change it.
FileDescriptor OpenOrCreate(const std::string& path, int accessMode) {
  for (;;) {
    FileDescriptor created = Open(path, accessMode | O_CREAT | O_EXCL, kSharedMode);
    if (created.IsOpen()) {
      ::fchmod(created.Get(), kSharedMode);
      return created;
    }
    if (errno != EEXIST) KX_THROW(PosixError);
    FileDescriptor existing = Open(path, accessMode);
    if (existing.IsOpen()) return existing;
    // Removed between the two calls: try again.
    if (errno != ENOENT) KX_THROW(PosixError);
  }
}

int FlockRetryingInterrupts(int fd, int operation) {
  return RetryOnInterrupt([&] { return ::flock(fd, operation); });
}

}  // namespace

std::string SharedFilePath(const std::string& name) {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) {
    KX_THROW(exception::InvalidArgument);
  }
  return JoinPath(SharedFileDirectory(), name);
}

SharedFile::SharedFile(const std::string& path, int accessMode) : path_(path) {
  CreateDirectories(DirectoryPart(path_), 0777);
  fd_ = OpenOrCreate(path_, accessMode);
}

void SharedFile::Lock() {
  if (FlockRetryingInterrupts(fd_.Get(), LOCK_EX) != 0) KX_THROW(PosixError);
}

bool SharedFile::TryLock() {
  if (FlockRetryingInterrupts(fd_.Get(), LOCK_EX | LOCK_NB) == 0) return true;
  if (errno == EWOULDBLOCK) return false;
  KX_THROW(PosixError);
}

void SharedFile::Unlock() {
  if (FlockRetryingInterrupts(fd_.Get(), LOCK_UN) != 0) KX_THROW(PosixError);
}

}  // namespace kx::tal::osdep
