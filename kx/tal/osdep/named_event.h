#pragma once
// A binary signal between processes, found by name: one process sets it, another
// waits for it. Every process under the same system root that opens a name
// reaches the same event; different roots never share one.
//
// Each event is one System V semaphore. An auto-reset event (manual-reset flag 0)
// is signalled at value 1 and a wait takes the 1 away, so one set wakes one wait
// and sets do not accumulate. A manual-reset event (flag non-zero) is encoded the
// other way round, signalled at value 0, so that "wait for zero" waits without
// consuming the signal.
//
// Allocation (FindOrCreateNamedEventSemaphore, the one routine every process uses):
// - Files live in "/tmp/brenmar" below the system root, which goes away with the
//   semaphores when the controller restarts.
// - The state file "kx_tal_osdep_NamedEvent_state_<name>" records where the event
//   lives, 17 bytes from offset 0 in native byte order: magic 0x15E35E31 (32 bits),
//   valid flag (1 byte), key-file number, semaphore index, semaphore set identifier
//   (32 bits each). It is read and written under the named mutex
//   "kx_tal_osdep_NamedEvent_StateFileMutex" and an flock on the file itself.
// - A new event takes the lowest number N whose key file
//   "kx_tal_osdep_NamedEvent_sem_<N>" it can create exclusively; its semaphore set
//   (one semaphore, index 0, permissions 0777) is created with the key ftok(key
//   file, 1) and IPC_EXCL. A key that is already taken (ftok keys of files in
//   different roots can collide) makes it drop that key file and try the next N.
// - A recorded event is used only while ftok(key file, 1) still leads to the
//   recorded set identifier; otherwise (the set was removed, or the key now
//   belongs to someone else) the event is allocated afresh.
//
// Within a process all objects of one name (under one root) share one record,
// found in a registry under its mutex; the semaphore set outlives them all until
// RemoveNamedEvent.

#include <cstdint>
#include <memory>
#include <string>

namespace kx::tal::osdep {

namespace detail {
struct NamedEventRecord;  // what the objects of one name share within a process
}  // namespace detail

// Where an event's semaphore lives.
struct NamedEventSemaphore {
  int setId;
  uint32_t index;
};

// Finds the event's semaphore, allocating it when the event does not exist yet.
// A new event starts signalled when initiallySignalled is non-zero; for an
// existing one both flags are ignored here. Throws InvalidArgument for an empty
// name, a name containing "/" or one too long for a file name, PosixError when a
// file or semaphore call fails.
NamedEventSemaphore FindOrCreateNamedEventSemaphore(const std::string& name, uint32_t manualReset,
                                                    uint32_t initiallySignalled);

// Removes the event's semaphore set and key file and marks its state invalid; no
// event of that name is a no-op. Objects of the name still open fail with
// PosixError from then on; objects opened later get a new event. Throws as
// FindOrCreateNamedEventSemaphore.
void RemoveNamedEvent(const std::string& name);

class NamedEvent {
 public:
  // Wait() without a time limit.
  static constexpr uint32_t kInfinite = 0xFFFFFFFF;

  // Opens the event, creating it when missing (see FindOrCreateNamedEventSemaphore).
  // An event already open in this process keeps the manual-reset flag it was
  // first opened with. The installation daemon's event is opened with (name, 0, 0).
  explicit NamedEvent(const std::string& name, uint32_t manualReset = 0, uint32_t initiallySignalled = 0);
  // Closes: drops this object's reference to the shared record.
  ~NamedEvent() = default;
  NamedEvent(const NamedEvent&) = delete;
  NamedEvent& operator=(const NamedEvent&) = delete;

  void Set();
  void Reset();
  // True when the event was signalled (an auto-reset event is then consumed).
  bool TryWait();
  // True when the event was signalled within timeoutMs milliseconds, false when
  // the time ran out. Interruptions by signals do not lengthen the wait.
  bool Wait(uint32_t timeoutMs = kInfinite);

  NamedEventSemaphore Semaphore() const;

 private:
  bool WaitOnce(short flags, const struct timespec* timeout);

  std::shared_ptr<const detail::NamedEventRecord> record_;
};

}  // namespace kx::tal::osdep
