#pragma once
// The action-lock service: one installation action at a time, across processes
// and restarts.
//
// The lock is the action's directory inside the action exchange directory,
// named from the action ID by exchange::ActionDirectoryName, holding the lock
// record exchange::kLockRecordName (format in exchange/lock_record.h). The lock
// is held while the action exchange directory has any entry but the removal
// directory (below); it is held by an ID when that is the only entry, it is the
// ID's directory, and its record names the whole ID. Every operation runs under the progress mutex
// (exchange::kProgressMutexName), under which the web methods also check the
// lock and place their request files, so processes and threads see each step
// whole. A lock is removed all at once: its directory is renamed into the
// removal directory "~~removed" (which holds no lock) before it is deleted, so a
// request file arriving meanwhile can never leave a directory without its
// record behind.
//
// Action IDs are opaque: any non-empty text of at most 4096 bytes. A longer or
// empty one is refused with 0x80070057 and touches nothing.

#include <cstdint>
#include <string>

// Takes the lock for `actionId`: creates the action exchange directory when
// missing, the action's directory and its lock record (owner "opuser", group
// "kx"; modes 0775 and 0664), and hands back the record's path. Entries of the
// action exchange directory that hold no lock record are removed first, and
// logged: remains of a run cut short must not block the service. 0 when taken,
// 1 when this ID holds it already (the path is handed back too), 0x800407E2 when
// another action holds it, 0x80070057 for an unacceptable ID, 0x80004005 when
// the files cannot be made.
[[nodiscard]] int32_t ObtainActionLock(const std::string& actionId, const std::string& customLockHolder,
                                       std::string& lockFilePath);

// 1 when `actionId` holds the lock, else 0.
[[nodiscard]] int32_t HasActionLock(const std::string& actionId);

// Releases the lock of `actionId` and removes its directory: 0; 0x800407E2 when
// that ID does not hold the lock, 0x80004005 when the directory cannot be moved
// into the removal directory (then the lock stays as it was).
[[nodiscard]] int32_t RemoveActionLock(const std::string& actionId);

// Removes every entry of the action exchange directory, whoever holds the lock.
// 0, or 0x80004005 when an entry could not be moved into the removal directory.
[[nodiscard]] int32_t ForceRemoveActionLock();

// Turns an interrupted action into the last action: "lastAction.xml" gets one
// <Last …/> line with the time now and Result -2147467259.
// - "currentAction.xml" exists (the daemon was running the action): its Id and
//   ActionType; the file is removed and the Id handed back.
// - Otherwise the current action directory holds a work request the daemon never
//   took up (exchange::kWorkRequests): the ID of its lock record (or the
//   directory's name) and the request's action type; the ID is handed back.
// - Otherwise (an action only begun, or whose work is done) "lastAction.xml"
//   stays as it is and the directory's name is handed back.
// 0, or 0x80004005 when there was nothing to convert or the files could not be
// read or written.
[[nodiscard]] int32_t ConvertCurrentActionProgress(std::string& lastActionId);
