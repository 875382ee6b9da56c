#pragma once
// A file in the shared-file directory that processes of every user can open
// and lock with flock. The lock belongs to the open file, so the kernel drops it
// when the process holding it dies.

#include <string>

#include "kx/tal/osdep/posix_io.h"

namespace kx::tal::osdep {

// The path of the shared file `name`: "<SharedFileDirectory()>/<name>". Throws
// InvalidArgument for an empty name, ".", ".." or a name containing "/".
std::string SharedFilePath(const std::string& name);

class SharedFile {
 public:
  // Opens `path` read-only or read-write (O_RDONLY or O_RDWR), creating its
  // directory and the file (mode 0666, whatever the umask) when missing. Throws
  // PosixError on failure. The descriptor is not inherited by programs run with exec.
  SharedFile(const std::string& path, int accessMode);

  int Descriptor() const { return fd_.Get(); }
  const std::string& Path() const { return path_; }

  // Exclusive flock: Lock() waits, TryLock() does not. Interrupted calls are
  // repeated; other failures throw PosixError.
  void Lock();
  bool TryLock();
  void Unlock();

 private:
  std::string path_;
  FileDescriptor fd_;
};

}  // namespace kx::tal::osdep
