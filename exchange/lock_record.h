#pragma once
// The lock record: the file in the current action directory that says which
// action holds the action lock. Written by the action-lock service, read by it
// and by the daemon.
//
//   Id=<action ID>
//   Holder=<custom lock holder, control characters as blanks, at most 1024 bytes>
//   ProcessId=<pid of the process that took the lock>
//   Time=<seconds since 1970-01-01 UTC when it was taken>
//
// The action ID is kept whole: a backslash is written "\\" and every control
// character (a line end, NUL, ...) as "\x" and two upper-case hexadecimal digits,
// so the Id line is one line whatever the ID holds.

#include <sys/types.h>

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace kx::exchange {

constexpr char kLockRecordName[] = "ActionLock.txt";
constexpr size_t kMaxLockHolderLength = 1024;

struct LockRecord {
  std::string actionId;
  std::string holder;
  pid_t processId = 0;
  std::time_t time = 0;
};

std::string LockRecordText(const LockRecord& record);

// The record's first line, line end included: a record names `actionId` when it starts with it.
std::string LockRecordIdLine(std::string_view actionId);

// The action ID of a record's first line (with or without its line end);
// nullopt when the line is no well-formed Id line.
std::optional<std::string> LockRecordActionId(std::string_view firstLine);

}  // namespace kx::exchange
