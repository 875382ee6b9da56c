#include "platform/ownership.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <mutex>
#include <vector>

#include "kx/tal/log.h"

namespace kx::platform {
namespace {

using tal::logmask::kEntry;
using tal::logmask::kError2;
using tal::logmask::kInfo;

// Upper bound for the lookup buffer, which grows while the entry does not fit.
constexpr size_t kMaxLookupBuffer = 1 << 20;

struct IdCache {
  std::mutex lock;
  std::map<std::string, int64_t> ids;
};

// Destroyed with the library: the plug-in that holds them may be unloaded.
IdCache& UserCache() {
  static IdCache cache;
  return cache;
}

IdCache& GroupCache() {
  static IdCache cache;
  return cache;
}

bool FindCached(IdCache& cache, const std::string& name, int64_t& id) {
  std::lock_guard<std::mutex> guard(cache.lock);
  const auto found = cache.ids.find(name);
  if (found == cache.ids.end()) return false;
  id = found->second;
  return true;
}

size_t Store(IdCache& cache, const std::string& name, int64_t id) {
  std::lock_guard<std::mutex> guard(cache.lock);
  cache.ids[name] = id;
  return cache.ids.size();
}

size_t InitialBufferSize(int sysconfName) {
  const long size = ::sysconf(sysconfName);
  return size > 0 ? static_cast<size_t>(size) : 16384;
}

enum class LookupResult { kFound, kFailed, kNoEntry };

// getpwnam_r / getgrnam_r with a buffer that grows while the entry does not fit.
template <typename Entry, typename Lookup, typename IdOf>
LookupResult LookUp(const std::string& name, int sysconfName, Lookup lookup, IdOf idOf, int64_t& id) {
  std::vector<char> buffer(InitialBufferSize(sysconfName));
  Entry entry;
  Entry* result = nullptr;
  int error;
  while ((error = lookup(name.c_str(), &entry, buffer.data(), buffer.size(), &result)) == ERANGE &&
         buffer.size() < kMaxLookupBuffer) {
    buffer.resize(buffer.size() * 2);
  }
  if (error != 0) return LookupResult::kFailed;
  if (result == nullptr) return LookupResult::kNoEntry;
  id = static_cast<int64_t>(idOf(*result));
  return LookupResult::kFound;
}

}  // namespace

int64_t GetUserID(const std::string& name) {
  KX_LOG(kEntry, "GetUserID()");
  KX_LOG(kEntry, "Lookup Username: " + name);
  if (name.empty()) {
    KX_LOG(kError2, "Username Empty!");
    return -1;
  }
  int64_t id;
  if (FindCached(UserCache(), name, id)) return id;
  KX_LOG(kEntry, "User not in cache map, use getpwnam_r");
  const LookupResult result = LookUp<passwd>(
      name, _SC_GETPW_R_SIZE_MAX, ::getpwnam_r, [](const passwd& entry) { return entry.pw_uid; }, id);
  if (result != LookupResult::kFound) {
    KX_LOG(kError2, result == LookupResult::kFailed ? "Unknown Username" : "Null Result");
    return -1;
  }
  const size_t count = Store(UserCache(), name, id);
  KX_LOG(kEntry, "Success: " + name);
  KX_LOG(kEntry, "Size of users: " + std::to_string(count));
  return id;
}

int64_t GetGroupID(const std::string& name) {
  KX_LOG(kEntry, "GetGroupID()");
  KX_LOG(kEntry, "Lookup groupname: " + name);
  if (name.empty()) {
    KX_LOG(kError2, "Groupname Empty");
    return -1;
  }
  int64_t id;
  if (FindCached(GroupCache(), name, id)) return id;
  KX_LOG(kInfo, "Unable to find group in current map");
  const LookupResult result = LookUp<group>(
      name, _SC_GETGR_R_SIZE_MAX, ::getgrnam_r, [](const group& entry) { return entry.gr_gid; }, id);
  if (result != LookupResult::kFound) {
    KX_LOG(kError2, result == LookupResult::kFailed ? "Unknown Groupname" : "Null Result");
    return -1;
  }
  const size_t count = Store(GroupCache(), name, id);
  KX_LOG(kEntry, "Success: " + name);
  KX_LOG(kEntry, "Size of groups: " + std::to_string(count));
  return id;
}

int32_t SetOwnerAndGroup(const std::string& path, const std::string& user, const std::string& group) {
  KX_LOG(kEntry, "SetOwnerAndGroup()");
  int64_t uid = -1;
  int64_t gid = -1;
  if (!user.empty() && !group.empty()) {
    uid = GetUserID(user);
    gid = GetGroupID(group);
  }
  if (uid < 0 || gid < 0) {
    uid = GetUserID(kDefaultOwner);
    gid = GetGroupID(kDefaultGroup);
  }
  // An ID that cannot be resolved even for the defaults stays -1, which chown
  // leaves unchanged: the file keeps that owner, and its mode is still set.
  if (::chown(path.c_str(), static_cast<uid_t>(uid), static_cast<gid_t>(gid)) != 0) {
    KX_LOG(kError2, "Failed call to chown for " + path);
    return -1;
  }
  return 0;
}

int32_t SetToDefaultOwnerGroupAndPermissions(const std::string& path) {
  KX_LOG(kEntry, "SetToDefaultOwnerGroupAndPermissions()");
  if (SetOwnerAndGroup(path, kDefaultOwner, kDefaultGroup) != 0) return -1;
  if (::chmod(path.c_str(), static_cast<mode_t>(SymbolicModeToMode(kDefaultMode))) != 0) {
    KX_LOG(kError2, "Failed call to chmod for " + path);
    return -1;
  }
  return 0;
}

void GiveToDefaultOwner(const std::string& path, mode_t mode) {
  static_cast<void>(SetOwnerAndGroup(path, kDefaultOwner, kDefaultGroup));  // logs its failure
  if (::chmod(path.c_str(), mode) != 0) KX_LOG(kError2, "Failed call to chmod for " + path);
}

int32_t SymbolicModeToMode(std::string_view text) {
  static constexpr char kLetters[] = "rwxrwxrwx";
  if (text.size() != 9) return -1;
  int32_t mode = 0;
  for (size_t i = 0; i < 9; ++i) {
    if (text[i] == kLetters[i]) mode |= 0400 >> i;
  }
  return mode;
}

}  // namespace kx::platform
