#include "kx/tal/osdep/named_mutex.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include "kx/tal/exception/exception.h"
#include "kx/tal/osdep/shared_file.h"

namespace kx::tal::osdep {

namespace {
const char kLockFilePrefix[] = "kx_tal_osdep_NamedMutex_";
// A timed wait polls the lock file, from kFirstPoll growing to kLongestPoll.
constexpr std::chrono::milliseconds kFirstPoll(1);
constexpr std::chrono::milliseconds kLongestPoll(10);

using Clock = std::chrono::steady_clock;

// flock itself cannot time out, so a timed wait polls with short sleeps.
bool LockFileBefore(SharedFile& file, Clock::time_point deadline) {
  std::chrono::milliseconds poll = kFirstPoll;
  for (;;) {
    if (file.TryLock()) return true;
    const Clock::time_point now = Clock::now();
    if (now >= deadline) return false;
    std::this_thread::sleep_for(std::min<Clock::duration>(poll, deadline - now));
    poll = std::min(poll * 2, kLongestPoll);
  }
}
}  // namespace

// What all objects of one name share within a process. Only the thread in
// `owner` touches the file lock, so the flock of one process is never taken
// twice through the shared descriptor.
struct NamedMutex::Record {
  explicit Record(const std::string& path) : file(path, O_RDONLY), pid(::getpid()) {}

  SharedFile file;
  const pid_t pid;  // a forked child must not use its parent's descriptor
  std::mutex mutex;
  std::condition_variable released;
  std::thread::id owner;  // guarded by mutex; empty while no thread holds it
  uint32_t depth = 0;     // guarded by mutex
};

std::shared_ptr<NamedMutex::Record> NamedMutex::FindOrOpen(const std::string& path) {
  static std::mutex registryMutex;
  static std::map<std::string, std::weak_ptr<Record>> registry;
  std::lock_guard<std::mutex> guard(registryMutex);
  std::weak_ptr<Record>& entry = registry[path];
  std::shared_ptr<Record> record = entry.lock();
  if (!record || record->pid != ::getpid()) {
    record = std::make_shared<Record>(path);
    entry = record;
  }
  return record;
}

NamedMutex::NamedMutex(const std::string& name) : name_(name) {
  if (name_.empty() || name_.find('/') != std::string::npos) KX_THROW(exception::InvalidArgument);
  record_ = FindOrOpen(SharedFilePath(kLockFilePrefix + name_));
}

NamedMutex::~NamedMutex() = default;

bool NamedMutex::Lock(int32_t timeoutMs) {
  const bool waitForever = timeoutMs < 0;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(waitForever ? 0 : timeoutMs);
  const auto self = std::this_thread::get_id();
  std::unique_lock<std::mutex> lock(record_->mutex);
  if (record_->owner == self) {
    ++record_->depth;
    return true;
  }
  // First the other threads of this process, then the other processes.
  const auto isFree = [this] { return record_->owner == std::thread::id(); };
  if (waitForever) {
    record_->released.wait(lock, isFree);
  } else if (!record_->released.wait_until(lock, deadline, isFree)) {
    return false;
  }
  record_->owner = self;
  lock.unlock();

  bool locked = false;
  try {
    locked = waitForever ? (record_->file.Lock(), true) : LockFileBefore(record_->file, deadline);
  } catch (...) {
    lock.lock();
    GiveUpOwnership();
    throw;
  }
  lock.lock();
  if (locked) {
    record_->depth = 1;
  } else {
    GiveUpOwnership();
  }
  return locked;
}

void NamedMutex::GiveUpOwnership() {
  record_->owner = std::thread::id();
  record_->released.notify_one();
}

void NamedMutex::Unlock() {
  std::lock_guard<std::mutex> guard(record_->mutex);
  if (record_->owner != std::this_thread::get_id()) KX_THROW(exception::InvalidOperation);
  if (--record_->depth > 0) return;
  // The next thread of this process wakes only after the record's mutex is
  // released, so it never finds the flock still held through our descriptor.
  GiveUpOwnership();
  record_->file.Unlock();
}

NamedMutexLock::NamedMutexLock(NamedMutex& mutex, int32_t timeoutMs) : mutex_(mutex), locked_(mutex.Lock(timeoutMs)) {}

NamedMutexLock::~NamedMutexLock() {
  try {
    Release();
  } catch (const std::exception&) {
    // An unlock that fails cannot be reported from here; the lock ends with the process.
  }
}

void NamedMutexLock::Release() {
  if (!locked_) return;
  locked_ = false;
  mutex_.Unlock();
}

}  // namespace kx::tal::osdep
