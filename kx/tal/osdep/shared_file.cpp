#include "kx/tal/osdep/shared_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "kx/tal/exception/exception.h"
#include "kx/tal/exception/os_exception.h"
#include "kx/tal/path.h"

namespace kx::tal::osdep {

namespace {

constexpr mode_t kSharedMode = 0666;

int OpenRetryingInterrupts(const std::string& path, int flags, mode_t mode = 0) {
  int fd;
  do {
    fd = ::open(path.c_str(), flags | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

// Opens an existing file or creates it. Only the creator sets the mode, because
// the umask may have cut it and only the owner may change it.
int OpenOrCreate(const std::string& path, int accessMode) {
  for (;;) {
    const int created = OpenRetryingInterrupts(path, accessMode | O_CREAT | O_EXCL, kSharedMode);
    if (created >= 0) {
      ::fchmod(created, kSharedMode);
      return created;
    }
    if (errno != EEXIST) KX_THROW(PosixError);
    const int existing = OpenRetryingInterrupts(path, accessMode);
    if (existing >= 0) return existing;
    // Removed between the two calls: try again.
    if (errno != ENOENT) KX_THROW(PosixError);
  }
}

int FlockRetryingInterrupts(int fd, int operation) {
  int result;
  do {
    result = ::flock(fd, operation);
  } while (result != 0 && errno == EINTR);
  return result;
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

SharedFile::~SharedFile() { ::close(fd_); }

void SharedFile::Lock() {
  if (FlockRetryingInterrupts(fd_, LOCK_EX) != 0) KX_THROW(PosixError);
}

bool SharedFile::TryLock() {
  if (FlockRetryingInterrupts(fd_, LOCK_EX | LOCK_NB) == 0) return true;
  if (errno == EWOULDBLOCK) return false;
  KX_THROW(PosixError);
}

void SharedFile::Unlock() {
  if (FlockRetryingInterrupts(fd_, LOCK_UN) != 0) KX_THROW(PosixError);
}

}  // namespace kx::tal::osdep
