#include "platform/shared_files.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "kx/tal/exception/exception.h"
#include "kx/tal/file_finder.h"
#include "kx/tal/log.h"

namespace kx::platform {
namespace {

constexpr size_t kLookupBufferSize = 16384;

bool LookUpDefaultIds(uid_t& uid, gid_t& gid) {
  std::vector<char> buffer(kLookupBufferSize);
  passwd user;
  passwd* userFound = nullptr;
  if (::getpwnam_r("opuser", &user, buffer.data(), buffer.size(), &userFound) != 0 || !userFound) {
    return false;
  }
  uid = user.pw_uid;
  group grp;
  group* groupFound = nullptr;
  if (::getgrnam_r("kx", &grp, buffer.data(), buffer.size(), &groupFound) != 0 || !groupFound) {
    return false;
  }
  gid = grp.gr_gid;
  return true;
}

bool IsRealDirectory(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool RemoveOne(const std::string& path) {
  return (IsRealDirectory(path) ? ::rmdir(path.c_str()) : ::unlink(path.c_str())) == 0;
}

}  // namespace

bool GiveToDefaultOwner(const std::string& path, mode_t mode) {
  uid_t uid;
  gid_t gid;
  bool done = LookUpDefaultIds(uid, gid) && ::chown(path.c_str(), uid, gid) == 0;
  if (!done) KX_LOG(tal::logmask::kError2, "Failed call to chown for " + path);
  if (::chmod(path.c_str(), mode) != 0) {
    KX_LOG(tal::logmask::kError2, "Failed call to chmod for " + path);
    done = false;
  }
  return done;
}

bool RemoveTree(const std::string& path) {
  bool removedAll = true;
  if (IsRealDirectory(path)) {
    try {
      for (const std::string& entry : tal::FindFiles(path, "*", true)) {
        removedAll = RemoveOne(entry) && removedAll;
      }
    } catch (const tal::exception::Exception&) {
      removedAll = false;
    }
  }
  return RemoveOne(path) && removedAll;
}

}  // namespace kx::platform
