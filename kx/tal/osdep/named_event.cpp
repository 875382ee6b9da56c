#include "kx/tal/osdep/named_event.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "kx/tal/exception/exception.h"
#include "kx/tal/exception/os_exception.h"
#include "kx/tal/osdep/named_mutex.h"
#include "kx/tal/osdep/posix_io.h"
#include "kx/tal/osdep/shared_file.h"
#include "kx/tal/path.h"

namespace kx::tal::osdep {
namespace {

constexpr char kStateFileMutexName[] = "kx_tal_osdep_NamedEvent_StateFileMutex";
constexpr char kDirectory[] = "/tmp/brenmar";
constexpr char kKeyFilePrefix[] = "kx_tal_osdep_NamedEvent_sem_";
constexpr char kStateFilePrefix[] = "kx_tal_osdep_NamedEvent_state_";
constexpr int kProjectId = 1;
constexpr int kSetPermissions = 0777;
constexpr uint32_t kMagic = 0x15E35E31;
// Beyond this many key files something is badly wrong; give up rather than scan on.
constexpr uint32_t kMaxKeyFiles = 4096;
// The longest file name most file systems take.
constexpr size_t kMaxFileName = 255;

// The caller defines this for semctl (see semctl(2)).
union SemaphoreArgument {
  int val;
  struct semid_ds* buf;
  unsigned short* array;
};

struct StateRecord {
  bool valid = false;
  uint32_t number = 0;
  uint32_t index = 0;
  int32_t setId = -1;
};
constexpr size_t kStateSize = 4 + 1 + 3 * 4;

std::string KeyFilePath(uint32_t number) {
  return JoinPath(RootedPath(kDirectory), kKeyFilePrefix + std::to_string(number));
}

std::string StateFilePath(const std::string& name) {
  if (name.empty() || name.find('/') != std::string::npos || name.size() + sizeof kStateFilePrefix - 1 > kMaxFileName) {
    KX_THROW(exception::InvalidArgument);
  }
  return JoinPath(RootedPath(kDirectory), kStateFilePrefix + name);
}

StateRecord ReadState(int fd) {
  unsigned char bytes[kStateSize];
  const ssize_t size = RetryOnInterrupt([&] { return ::pread(fd, bytes, sizeof bytes, 0); });
  if (size < 0) KX_THROW(PosixError);
  StateRecord state;
  if (static_cast<size_t>(size) < sizeof bytes) return state;
  uint32_t magic;
  std::memcpy(&magic, bytes, 4);
  if (magic != kMagic || bytes[4] == 0) return state;
  state.valid = true;
  std::memcpy(&state.number, bytes + 5, 4);
  std::memcpy(&state.index, bytes + 9, 4);
  std::memcpy(&state.setId, bytes + 13, 4);
  return state;
}

void WriteState(int fd, const StateRecord& state) {
  unsigned char bytes[kStateSize];
  std::memcpy(bytes, &kMagic, 4);
  bytes[4] = state.valid ? 1 : 0;
  std::memcpy(bytes + 5, &state.number, 4);
  std::memcpy(bytes + 9, &state.index, 4);
  std::memcpy(bytes + 13, &state.setId, 4);
  const ssize_t size = RetryOnInterrupt([&] { return ::pwrite(fd, bytes, sizeof bytes, 0); });
  if (size < 0) KX_THROW(PosixError);
  if (static_cast<size_t>(size) != sizeof bytes) KX_THROW(PosixError, EIO);
}

// ftok's key, or -1 with errno set.
key_t KeyOf(const std::string& keyFile) {
  return RetryOnInterrupt([&] { return ::ftok(keyFile.c_str(), kProjectId); });
}

int SemaphoreControl(int setId, uint32_t index, int command, int value = 0) {
  SemaphoreArgument argument{};
  argument.val = value;
  return RetryOnInterrupt([&] { return ::semctl(setId, static_cast<int>(index), command, argument); });
}

// The recorded set when its key file still leads to it, else -1. Only a missing
// key file or set counts as gone; any other failure throws.
int RecordedSet(const StateRecord& state) {
  const key_t key = KeyOf(KeyFilePath(state.number));
  if (key == -1) {
    if (errno == ENOENT) return -1;
    KX_THROW(PosixError);
  }
  const int setId = ::semget(key, static_cast<int>(state.index) + 1, 0);
  if (setId == -1) {
    if (errno == ENOENT || errno == EINVAL) return -1;
    KX_THROW(PosixError);
  }
  return setId == state.setId ? setId : -1;
}

// Creates the key file exclusively: false when it exists already.
bool CreateKeyFile(const std::string& path) {
  const FileDescriptor file = Open(path, O_WRONLY | O_CREAT | O_EXCL, 0666);
  if (!file.IsOpen()) {
    if (errno == EEXIST) return false;
    KX_THROW(PosixError);
  }
  ::fchmod(file.Get(), 0666);  // the umask may have cut it
  return true;
}

// Key files whose key belongs to another set: kept until a set is made, so
// that the file system does not hand the next key file the same inode (and
// with it the same key), then removed.
class SkippedKeyFiles {
 public:
  ~SkippedKeyFiles() {
    for (const std::string& path : paths_) ::unlink(path.c_str());
  }
  void Add(std::string path) { paths_.push_back(std::move(path)); }

 private:
  std::vector<std::string> paths_;
};

// A semaphore at the given state, in a set of its own under the first free key file.
StateRecord CreateSet(uint32_t manualReset, uint32_t initiallySignalled) {
  CreateDirectories(RootedPath(kDirectory), 0777);
  SkippedKeyFiles skipped;
  for (uint32_t number = 0; number < kMaxKeyFiles; ++number) {
    const std::string keyFile = KeyFilePath(number);
    if (!CreateKeyFile(keyFile)) continue;
    const key_t key = KeyOf(keyFile);
    const int setId = key == -1 ? -1 : ::semget(key, 1, IPC_CREAT | IPC_EXCL | kSetPermissions);
    if (setId == -1) {
      const int error = errno;
      if (error == EEXIST) {  // the key is someone else's
        skipped.Add(keyFile);
        continue;
      }
      ::unlink(keyFile.c_str());
      KX_THROW(PosixError, error);
    }
    // A new semaphore is 0: not signalled for an auto-reset event.
    const bool signalled = initiallySignalled != 0;
    const int value = manualReset != 0 ? !signalled : signalled;
    if (value != 0 && SemaphoreControl(setId, 0, SETVAL, value) == -1) {
      const int error = errno;
      SemaphoreControl(setId, 0, IPC_RMID);
      ::unlink(keyFile.c_str());
      KX_THROW(PosixError, error);
    }
    StateRecord state;
    state.valid = true;
    state.number = number;
    state.index = 0;
    state.setId = setId;
    return state;
  }
  KX_THROW(PosixError, ENOSPC);
}

// Holds both guards of an event's state file for as long as it lives.
class LockedStateFile {
 public:
  explicit LockedStateFile(const std::string& path)
      : mutex_(kStateFileMutexName), mutexLock_(mutex_), file_(path, O_RDWR) {
    file_.Lock();
  }
  ~LockedStateFile() {
    try {
      file_.Unlock();
    } catch (...) {
      // closing the file drops the lock all the same
    }
  }
  int Descriptor() const { return file_.Descriptor(); }

 private:
  NamedMutex mutex_;
  NamedMutexLock mutexLock_;
  SharedFile file_;
};

}  // namespace

NamedEventSemaphore FindOrCreateNamedEventSemaphore(const std::string& name, uint32_t manualReset,
                                                    uint32_t initiallySignalled) {
  LockedStateFile stateFile(StateFilePath(name));
  StateRecord state = ReadState(stateFile.Descriptor());
  if (state.valid) {
    const int setId = RecordedSet(state);
    if (setId != -1) return {setId, state.index};
    // Stale: the number is still ours, but its key no longer leads to our set.
    ::unlink(KeyFilePath(state.number).c_str());
  }
  state = CreateSet(manualReset, initiallySignalled);
  WriteState(stateFile.Descriptor(), state);
  return {state.setId, state.index};
}

namespace detail {
struct NamedEventRecord {
  NamedEventSemaphore semaphore;
  uint32_t manualReset;
};
}  // namespace detail

namespace {

using Record = detail::NamedEventRecord;

// The records open in this process, by the path of their state file (which holds
// the system root).
struct Registry {
  std::mutex mutex;
  std::map<std::string, std::weak_ptr<const Record>> records;
};

Registry& TheRegistry() {
  // Never destroyed: a thread may still open or close an event while statics go away.
  static Registry* registry = new Registry;
  return *registry;
}

}  // namespace

void RemoveNamedEvent(const std::string& name) {
  const std::string path = StateFilePath(name);
  {
    // Not while holding the state file: opening takes the two the other way round.
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.mutex);
    registry.records.erase(path);
  }
  if (!PathExists(path)) return;
  LockedStateFile stateFile(path);
  StateRecord state = ReadState(stateFile.Descriptor());
  if (!state.valid) return;
  const int setId = RecordedSet(state);
  if (setId != -1 && SemaphoreControl(setId, 0, IPC_RMID) == -1) KX_THROW(PosixError);
  ::unlink(KeyFilePath(state.number).c_str());
  state.valid = false;
  WriteState(stateFile.Descriptor(), state);
}

NamedEvent::NamedEvent(const std::string& name, uint32_t manualReset, uint32_t initiallySignalled) {
  const std::string path = StateFilePath(name);
  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> guard(registry.mutex);
  std::weak_ptr<const Record>& entry = registry.records[path];
  record_ = entry.lock();
  if (!record_) {
    record_ = std::make_shared<const Record>(
        Record{FindOrCreateNamedEventSemaphore(name, manualReset, initiallySignalled), manualReset});
    entry = record_;
  }
}

NamedEventSemaphore NamedEvent::Semaphore() const { return record_->semaphore; }

void NamedEvent::Set() {
  const uint32_t flag = record_->manualReset;
  const int value = flag <= 1 ? static_cast<int>(1 - flag) : 0;
  if (SemaphoreControl(record_->semaphore.setId, record_->semaphore.index, SETVAL, value) == -1) {
    KX_THROW(PosixError);
  }
}

void NamedEvent::Reset() {
  const int value = record_->manualReset != 0 ? 1 : 0;
  if (SemaphoreControl(record_->semaphore.setId, record_->semaphore.index, SETVAL, value) == -1) {
    KX_THROW(PosixError);
  }
}

// One semaphore operation: true when signalled, false on EAGAIN (not signalled, or
// the time ran out) and on EINTR (errno tells which); other failures throw.
bool NamedEvent::WaitOnce(short flags, const struct timespec* timeout) {
  struct sembuf operation {};
  operation.sem_num = static_cast<unsigned short>(record_->semaphore.index);
  // Auto-reset takes the 1 away; manual-reset waits for its signalled 0.
  operation.sem_op = record_->manualReset != 0 ? 0 : -1;
  operation.sem_flg = flags;
  if (::semtimedop(record_->semaphore.setId, &operation, 1, timeout) == 0) return true;
  if (errno == EAGAIN || errno == EINTR) return false;
  KX_THROW(PosixError);
}

bool NamedEvent::TryWait() {
  for (;;) {
    if (WaitOnce(IPC_NOWAIT, nullptr)) return true;
    if (errno == EAGAIN) return false;
  }
}

bool NamedEvent::Wait(uint32_t timeoutMs) {
  if (timeoutMs == kInfinite) {
    while (!WaitOnce(0, nullptr)) {
    }
    return true;
  }
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  struct timespec timeout {};
  timeout.tv_sec = static_cast<time_t>(timeoutMs / 1000);
  timeout.tv_nsec = static_cast<long>(timeoutMs % 1000) * 1000000L;
  for (;;) {
    if (WaitOnce(0, &timeout)) return true;
    if (errno == EAGAIN) return false;
    // Interrupted: go on with what remains of the original wait.
    const auto remaining = std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - Clock::now());
    const int64_t nanoseconds = remaining.count() > 0 ? remaining.count() : 0;
    timeout.tv_sec = static_cast<time_t>(nanoseconds / 1000000000);
    timeout.tv_nsec = static_cast<long>(nanoseconds % 1000000000);
  }
}

}  // namespace kx::tal::osdep
