#include "platform/remove_dir_hierarchy.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "kx/tal/exception/exception.h"
#include "kx/tal/exception/os_exception.h"
#include "kx/tal/file_finder.h"
#include "kx/tal/log.h"

namespace kx::platform {
namespace {

using tal::logmask::kEntry;
using tal::logmask::kError2;

bool IsRealDirectory(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string ErrorText(int error) { return tal::osdep::PosixError(error).what(); }

// Removes one listed entry; false (logged) when that fails.
bool RemoveEntry(const std::string& entry) {
  if (IsRealDirectory(entry)) {
    if (::rmdir(entry.c_str()) == 0) return true;
    KX_LOG(kError2, "Failed to remove Dir: " + entry);
    return false;
  }
  if (::unlink(entry.c_str()) == 0) return true;
  const int error = errno;
  KX_LOG(kError2, "Failed to remove File: " + entry + ", Exception String: " + ErrorText(error));
  return false;
}

}  // namespace

int32_t RemoveDirHierarchy(const std::string& path) {
  KX_LOG(kEntry, "RemoveDirHierarchy()");
  KX_LOG(kEntry, "Path to Remove is - " + path);
  // A link to a directory is removed itself: what it points to is not ours.
  if (!IsRealDirectory(path)) {
    if (::unlink(path.c_str()) == 0) return 0;
    const int error = errno;
    KX_LOG(kError2, "Failed to remove self: " + path + ", Exception String: " + ErrorText(error));
    return -1;
  }
  bool removedAll = true;
  try {
    for (const std::string& entry : tal::FindFiles(path, "*", true)) {
      removedAll = RemoveEntry(entry) && removedAll;
    }
  } catch (const tal::exception::Exception& error) {
    KX_LOG(kError2, "Failed to list " + path + ", Exception String: " + error.what());
    removedAll = false;
  }
  if (::rmdir(path.c_str()) != 0) {
    const int error = errno;
    KX_LOG(kError2, "Failed to remove self: " + path + ", Exception String: " + ErrorText(error));
    return -1;
  }
  return removedAll ? 0 : -1;
}

}  // namespace kx::platform
