#include "platform/action_lock.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string_view>
#include <vector>

#include "exchange/action_directory_name.h"
#include "exchange/ipc_names.h"
#include "exchange/lock_record.h"
#include "exchange/paths.h"
#include "exchange/request_files.h"
#include "exchange/result_codes.h"
#include "exchange/state_files.h"
#include "kx/tal/exception/exception.h"
#include "kx/tal/exception/os_exception.h"
#include "kx/tal/file_finder.h"
#include "kx/tal/log.h"
#include "kx/tal/osdep/named_mutex.h"
#include "kx/tal/osdep/posix_io.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"
#include "platform/ownership.h"
#include "platform/remove_dir_hierarchy.h"

namespace kx::platform {
namespace {

using exchange::kResultAlreadyHeld;
using exchange::kResultFail;
using exchange::kResultInvalidArgument;
using exchange::kResultNotLockHolder;
using exchange::kResultOk;
using tal::logmask::kError;
using tal::logmask::kError2;

constexpr mode_t kDirectoryMode = 0775;
constexpr mode_t kFileMode = 0664;

// Holds the progress mutex for its lifetime. The web methods check the lock and
// place their request files under it, so nothing slips into an action directory
// while the service changes it. A thread may take it again, so a handler that
// holds it already can call the service. Made anew for each operation: a forked
// process gets its own.
class ServiceLock {
 public:
  ServiceLock() : mutex_(exchange::kProgressMutexName), lock_(mutex_) {}

 private:
  tal::osdep::NamedMutex mutex_;
  tal::osdep::NamedMutexLock lock_;
};

std::string ActionDirectory(const std::string& actionId) {
  return tal::JoinPath(exchange::ActionExchangeDirectory(), exchange::ActionDirectoryName(actionId));
}

std::string RecordPath(const std::string& actionId) {
  return tal::JoinPath(ActionDirectory(actionId), exchange::kLockRecordName);
}

// Where removed entries are deleted: inside the action exchange directory, so
// that they stay on its file system and, like it, out of images and formats.
// No action directory has this name, and it sorts after all of them, so the
// current action directory (the first entry) is never it while an action is
// pending. It holds no lock: what could not be deleted does not block the service.
constexpr char kRemovalDirectoryName[] = "~~removed";

std::string RemovalDirectory() { return tal::JoinPath(exchange::ActionExchangeDirectory(), kRemovalDirectoryName); }

// The entries of the action exchange directory but the removal directory.
std::vector<std::string> ExchangeEntries() {
  const std::string directory = exchange::ActionExchangeDirectory();
  if (!tal::PathExists(directory)) return {};
  std::vector<std::string> entries = tal::FindFiles(directory, "*");
  const auto removal = std::find(entries.begin(), entries.end(), RemovalDirectory());
  if (removal != entries.end()) entries.erase(removal);
  return entries;
}

// The largest lock record: an escaped ID of 4 KiB, a holder of 1 KiB, a pid and a time.
constexpr size_t kMaxRecordSize = 4 * exchange::kMaxActionIdLength + exchange::kMaxLockHolderLength + 128;

bool IsRealDirectory(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// The action ID that holds a lock in `entry`: a directory (not a link) with a
// regular record whose ID the directory is named after, as CreateLock makes it.
// Nothing for any other entry.
std::optional<std::string> LockHolder(const std::string& entry) {
  if (!IsRealDirectory(entry)) return std::nullopt;
  const std::optional<std::string> record =
      tal::osdep::ReadSmallRegularFile(tal::JoinPath(entry, exchange::kLockRecordName), kMaxRecordSize, false);
  if (!record) return std::nullopt;
  std::optional<std::string> id = exchange::LockRecordActionId(std::string_view(*record).substr(0, record->find('\n')));
  if (!id || !exchange::IsAcceptableActionId(*id) || exchange::ActionDirectoryName(*id) != tal::LastComponent(entry)) {
    return std::nullopt;
  }
  return id;
}

// Called with the service lock held.
bool IsHeldBy(const std::string& actionId) {
  const std::vector<std::string> entries = ExchangeEntries();
  return entries.size() == 1 && entries.front() == ActionDirectory(actionId) && LockHolder(entries.front()) == actionId;
}

// Moves `entry` into the removal directory in one rename, so that a lock's
// record and its directory go together, and then deletes the removal directory.
// Each entry gets a fresh directory of its own there, so remains of an earlier
// deletion never stand in the way (and are tried again). Throws when the entry
// cannot be moved: then nothing has changed. What cannot be deleted is logged.
void Discard(const std::string& entry) {
  const std::string removal = RemovalDirectory();
  if (::mkdir(removal.c_str(), 0700) != 0 && errno != EEXIST) KX_THROW(tal::osdep::PosixError);
  std::string holder = tal::JoinPath(removal, "XXXXXX");
  if (::mkdtemp(holder.data()) == nullptr) KX_THROW(tal::osdep::PosixError);
  if (::rename(entry.c_str(), tal::JoinPath(holder, tal::LastComponent(entry)).c_str()) != 0) {
    const int error = errno;
    ::rmdir(holder.c_str());
    KX_THROW(tal::osdep::PosixError, error);
  }
  if (RemoveDirHierarchy(removal) != 0) KX_LOG(kError2, "Could not delete all of " + removal);
}

// Entries that hold no lock: the remains of a removal or a start cut short, or
// files put there by hand. Left there they would refuse every later action.
void ClearLeftovers() {
  for (const std::string& entry : ExchangeEntries()) {
    if (LockHolder(entry)) continue;
    KX_LOG(kError, "Removing " + entry + " from the action exchange directory: it holds no lock record");
    Discard(entry);
  }
}

// Creates the action's directory and record; called with the service lock held
// and the lock free. Throws a foundation exception when a file cannot be made.
void CreateLock(const std::string& actionId, const std::string& holder) {
  tal::CreateDirectories(exchange::ActionExchangeDirectory(), kDirectoryMode);
  const std::string directory = ActionDirectory(actionId);
  if (::mkdir(directory.c_str(), kDirectoryMode) != 0) KX_THROW(tal::osdep::PosixError);
  GiveToDefaultOwner(directory, kDirectoryMode);
  const std::string record = RecordPath(actionId);
  tal::WriteTextFile(record, exchange::LockRecordText({actionId, holder, ::getpid(), std::time(nullptr)}));
  GiveToDefaultOwner(record, kFileMode);
}

void WriteLastAction(const std::string& line) {
  const std::string lastPath = exchange::LastActionFilePath();
  tal::WriteTextFile(lastPath, line);
  GiveToDefaultOwner(lastPath, kFileMode);
}

// Writes lastAction.xml from currentAction.xml and removes the latter. A file
// that is not a regular one (a FIFO would block) counts as unreadable.
std::string ConvertCurrentActionFile(const std::string& currentPath) {
  const std::optional<std::string> current = tal::osdep::ReadSmallRegularFile(currentPath, exchange::kMaxStateFileSize);
  if (!current) KX_THROW(tal::exception::FileReadFailed);
  WriteLastAction(exchange::LastActionLineOf(*current, kResultFail, std::time(nullptr)));
  if (::unlink(currentPath.c_str()) != 0) KX_THROW(tal::osdep::PosixError);
  return exchange::AttributeValue(*current, "Id");
}

// The action type of the first work request in `directory` that the daemon has
// not carried out (it renames those it has); null when there is none.
const char* PendingWorkRequest(const std::string& directory) {
  for (const exchange::WorkRequest& request : exchange::kWorkRequests) {
    if (tal::PathExists(tal::JoinPath(directory, request.fileName))) return request.actionType;
  }
  return nullptr;
}

}  // namespace

}  // namespace kx::platform

// The service functions are global by contract; their helpers live in kx::platform.
using namespace kx::platform;

int32_t ObtainActionLock(const std::string& actionId, const std::string& customLockHolder, std::string& lockFilePath) {
  KX_LOG(kx::tal::logmask::kEntry, "ObtainActionLock()");
  if (!kx::exchange::IsAcceptableActionId(actionId)) return kResultInvalidArgument;
  try {
    ServiceLock serviceLock;
    ClearLeftovers();
    if (IsHeldBy(actionId)) {
      lockFilePath = RecordPath(actionId);
      return kResultAlreadyHeld;
    }
    if (!ExchangeEntries().empty()) return kResultNotLockHolder;
    try {
      CreateLock(actionId, customLockHolder);
    } catch (const kx::tal::exception::Exception&) {
      static_cast<void>(RemoveDirHierarchy(ActionDirectory(actionId)));  // what was made goes; the cause counts
      throw;
    }
    lockFilePath = RecordPath(actionId);
    return kResultOk;
  } catch (const kx::tal::exception::Exception& error) {
    KX_LOG(kError2, std::string("ObtainActionLock failed: ") + error.what());
    return kResultFail;
  }
}

int32_t HasActionLock(const std::string& actionId) {
  if (!kx::exchange::IsAcceptableActionId(actionId)) return 0;
  try {
    ServiceLock serviceLock;
    return IsHeldBy(actionId) ? 1 : 0;
  } catch (const kx::tal::exception::Exception&) {
    return 0;
  }
}

int32_t RemoveActionLock(const std::string& actionId) {
  KX_LOG(kx::tal::logmask::kEntry, "RemoveActionLock()");
  if (!kx::exchange::IsAcceptableActionId(actionId)) return kResultNotLockHolder;
  try {
    ServiceLock serviceLock;
    if (!IsHeldBy(actionId)) return kResultNotLockHolder;
    Discard(ActionDirectory(actionId));
    return kResultOk;
  } catch (const kx::tal::exception::Exception& error) {
    KX_LOG(kError2, std::string("RemoveActionLock failed: ") + error.what());
    return kResultFail;
  }
}

int32_t ForceRemoveActionLock() {
  KX_LOG(kx::tal::logmask::kEntry, "ForceRemoveActionLock()");
  try {
    ServiceLock serviceLock;
    bool removedAll = true;
    for (const std::string& entry : ExchangeEntries()) {
      try {
        Discard(entry);
      } catch (const kx::tal::exception::Exception& error) {
        KX_LOG(kError2, "Could not remove " + entry + ": " + error.what());
        removedAll = false;
      }
    }
    return removedAll ? kResultOk : kResultFail;
  } catch (const kx::tal::exception::Exception&) {
    return kResultFail;
  }
}

int32_t ConvertCurrentActionProgress(std::string& lastActionId) {
  KX_LOG(kx::tal::logmask::kEntry, "ConvertCurrentActionProgress()");
  try {
    ServiceLock serviceLock;
    const std::string currentPath = kx::exchange::CurrentActionFilePath();
    if (kx::tal::PathExists(currentPath)) {
      lastActionId = ConvertCurrentActionFile(currentPath);
      return kResultOk;
    }
    const std::vector<std::string> entries = ExchangeEntries();
    if (entries.empty()) return kResultFail;
    const std::string& directory = entries.front();
    // A request placed but never taken up by the daemon: the action was cut
    // short as surely as one the daemon was running.
    if (const char* actionType = PendingWorkRequest(directory)) {
      lastActionId = LockHolder(directory).value_or(kx::tal::LastComponent(directory));
      WriteLastAction(kx::exchange::LastActionLine(lastActionId, actionType, kResultFail, std::time(nullptr)));
      return kResultOk;
    }
    lastActionId = kx::tal::LastComponent(directory);
    return kResultOk;
  } catch (const kx::tal::exception::Exception&) {
    return kResultFail;
  }
}
