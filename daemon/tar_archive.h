#pragma once
// Unpacking a TAR codebase. The system's tar program (GNU or BusyBox: both know
// "-x -o -f ARCHIVE -C DIR") unpacks it into a scratch directory; the installer
// then takes each entry from there through its own checks, so a hostile archive
// never writes into the controller's tree by itself.

#include <sys/types.h>

#include <string>
#include <vector>

namespace kx::daemon {

struct ArchiveEntry {
  enum class Type { kFile, kDirectory, kSymlink };
  std::string relativePath;  // "dir/file", no ".." and no leading "/"
  std::string hostPath;      // where it was unpacked
  Type type = Type::kFile;
  mode_t mode = 0;       // permission bits as packed, set-ID and sticky bits removed
  std::string linkText;  // kSymlink: what it points to
};

// Unpacks into `directory` (made afresh) without restoring owners and lists the
// entries, sorted by path. Devices, pipes and sockets are left out. Throws
// std::runtime_error with tar's own message when tar fails.
std::vector<ArchiveEntry> UnpackArchive(const std::string& archive, const std::string& directory);

}  // namespace kx::daemon
