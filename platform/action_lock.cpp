#include "platform/action_lock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <memory>
#include <optional>
#include <vector>

#include "exchange/action_directory_name.h"
#include "exchange/lock_record.h"
#include "exchange/paths.h"
#include "exchange/result_codes.h"
#include "exchange/state_files.h"
#include "kx/tal/exception/exception.h"
#include "kx/tal/exception/os_exception.h"
#include "kx/tal/file_finder.h"
#include "kx/tal/log.h"
#include "kx/tal/osdep/posix_io.h"
#include "kx/tal/osdep/shared_file.h"
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

constexpr mode_t kDirectoryMode = 0775;
constexpr mode_t kFileMode = 0664;

// Holds the service's flock for its lifetime. The lock file is opened anew each
// time, so threads of one process exclude each other as processes do.
class ServiceLock {
 public:
  ServiceLock() : file_(tal::osdep::SharedFilePath("kx_platform_ActionLock"), O_RDWR) { file_.Lock(); }

 private:
  tal::osdep::SharedFile file_;
};

std::string ActionDirectory(const std::string& actionId) {
  return tal::JoinPath(exchange::ActionExchangeDirectory(), exchange::ActionDirectoryName(actionId));
}

std::string RecordPath(const std::string& actionId) {
  return tal::JoinPath(ActionDirectory(actionId), exchange::kLockRecordName);
}

std::vector<std::string> ExchangeEntries() {
  const std::string directory = exchange::ActionExchangeDirectory();
  if (!tal::PathExists(directory)) return {};
  return tal::FindFiles(directory, "*");
}

// The largest lock record: an escaped ID of 4 KiB, a holder of 1 KiB, a pid and a time.
constexpr size_t kMaxRecordSize = 4 * exchange::kMaxActionIdLength + exchange::kMaxLockHolderLength + 128;

// True when the record at `path` is a regular file (not a link) whose first line names `actionId`.
bool RecordNames(const std::string& path, const std::string& actionId) {
  const std::optional<std::string> record = tal::osdep::ReadSmallRegularFile(path, kMaxRecordSize, false);
  return record && record->rfind(exchange::LockRecordIdLine(actionId), 0) == 0;
}

// Called with the service lock held.
bool IsHeldBy(const std::string& actionId) {
  const std::vector<std::string> entries = ExchangeEntries();
  return entries.size() == 1 && entries.front() == ActionDirectory(actionId) && tal::IsDirectory(entries.front()) &&
         RecordNames(RecordPath(actionId), actionId);
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

// Writes lastAction.xml from currentAction.xml and removes the latter.
std::string ConvertCurrentActionFile(const std::string& currentPath) {
  const std::string current = tal::ReadWholeFile(currentPath);
  const std::string lastPath = exchange::LastActionFilePath();
  tal::WriteTextFile(lastPath, exchange::LastActionLineOf(current, kResultFail, std::time(nullptr)));
  GiveToDefaultOwner(lastPath, kFileMode);
  if (::unlink(currentPath.c_str()) != 0) KX_THROW(tal::osdep::PosixError);
  return exchange::AttributeValue(current, "Id");
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
    KX_LOG(kx::tal::logmask::kError2, std::string("ObtainActionLock failed: ") + error.what());
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
    return RemoveDirHierarchy(ActionDirectory(actionId)) == 0 ? kResultOk : kResultFail;
  } catch (const kx::tal::exception::Exception&) {
    return kResultFail;
  }
}

int32_t ForceRemoveActionLock() {
  KX_LOG(kx::tal::logmask::kEntry, "ForceRemoveActionLock()");
  try {
    ServiceLock serviceLock;
    bool removedAll = true;
    for (const std::string& entry : ExchangeEntries()) removedAll = RemoveDirHierarchy(entry) == 0 && removedAll;
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
    lastActionId = kx::tal::LastComponent(entries.front());
    return kResultOk;
  } catch (const kx::tal::exception::Exception&) {
    return kResultFail;
  }
}
