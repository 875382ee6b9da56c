#include "daemon/transaction.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "actions/remove_dir_hierarchy.h"
#include "daemon/fault_injection.h"
#include "kx/tal/log.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"

namespace kx::daemon {
namespace {

constexpr char kJournalName[] = "journal";

std::string JournalPath(const Transaction::Paths& paths) { return tal::JoinPath(paths.directory, kJournalName); }

std::string BackupPath(const Transaction::Paths& paths, const std::string& number) {
  return tal::JoinPath(paths.directory, number);
}

[[noreturn]] void Fail(const std::string& what, const std::string& path) {
  throw std::system_error(errno, std::generic_category(), what + " " + path);
}

void RemoveTree(const std::string& path) {
  struct stat info {};
  if (LStat(path, info) && actions::RemoveDirHierarchy(path) != 0) {
    throw std::runtime_error("cannot remove " + path);
  }
}

// A journal could have been damaged: every path it names must lie below the root.
bool IsBelowRoot(const std::string& path) {
  const std::string root = tal::SystemRoot();
  const std::string prefix = root == "/" ? "/" : root + "/";
  return path.size() > prefix.size() && path.compare(0, prefix.size(), prefix) == 0 &&
         tal::CleanPath(path) == path;
}

bool IsNumber(const std::string& text) {
  return !text.empty() && text.size() < 10 && text.find_first_not_of("0123456789") == std::string::npos;
}

// Undoes one journal record; false when the record is not one this code writes.
bool UndoRecord(const Transaction::Paths& paths, const std::string& record) {
  const size_t space = record.find(' ');
  if (space == std::string::npos) return false;
  const std::string kind = record.substr(0, space);
  std::string path = record.substr(space + 1);
  if (kind == "saved") {
    const size_t second = path.find(' ');
    if (second == std::string::npos) return false;
    const std::string number = path.substr(0, second);
    path = path.substr(second + 1);
    if (!IsNumber(number) || !IsBelowRoot(path)) return false;
    CopyEntry(BackupPath(paths, number), path);
    return true;
  }
  if (!IsBelowRoot(path)) return false;
  struct stat info {};
  if (kind == "new") {
    RemoveFileIfPresent(TemporaryPathFor(path));
    if (LStat(path, info) && !S_ISDIR(info.st_mode)) RemoveFileIfPresent(path);
    return true;
  }
  if (kind == "dir") {
    if (::rmdir(path.c_str()) != 0 && errno != ENOENT) Fail("cannot remove the directory", path);
    return true;
  }
  return false;
}

}  // namespace

Transaction::Transaction(Paths paths) : paths_(std::move(paths)) {
  struct stat info {};
  // The journal of an interrupted transaction is all that can undo it.
  if (LStat(paths_.marker, info)) {
    throw std::runtime_error("an earlier installation was not rolled back completely (" + paths_.marker + ")");
  }
  if (paths_.directory.empty()) throw std::invalid_argument("no directory for the transaction");
  RemoveTree(paths_.directory);
  tal::CreateDirectories(paths_.directory, 0700);
  const std::string journal = JournalPath(paths_);
  journal_ = ::open(journal.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
  if (journal_ < 0) Fail("cannot create", journal);
  try {
    AppendDurably(journal_, "", journal);
    SyncDirectory(paths_.directory);
    if (LStat(paths_.configuration, info)) {
      CopyEntry(paths_.configuration, paths_.marker);
    } else {
      ReplaceFileWithText(paths_.marker, "", FileAttributes{});
    }
    SyncDirectory(tal::DirectoryPart(paths_.marker));
  } catch (...) {
    ::close(journal_);
    throw;
  }
  ReachedStep();
}

Transaction::~Transaction() {
  if (open_) {
    try {
      RollBack();
    } catch (const std::exception& error) {
      KX_LOG(tal::logmask::kError, std::string("Roll-back failed: ") + error.what());
    }
  }
  if (journal_ >= 0) ::close(journal_);
}

void Transaction::Record(const std::string& line) {
  AppendDurably(journal_, line + "\n", JournalPath(paths_));
  ReachedStep();
}

void Transaction::Announce(const std::string& path) {
  if (!announced_.insert(path).second) return;
  struct stat info {};
  if (!LStat(path, info)) {
    Record("new " + path);
    return;
  }
  if (S_ISDIR(info.st_mode)) {
    errno = EISDIR;
    Fail("cannot replace", path);
  }
  const std::string number = std::to_string(++backups_);
  CopyEntry(path, BackupPath(paths_, number));
  SyncDirectory(paths_.directory);
  Record("saved " + number + " " + path);
}

void Transaction::MakeDirectories(const std::string& directory) {
  std::vector<std::string> missing;
  struct stat info {};
  for (std::string path = tal::CleanPath(directory); !LStat(path, info); path = tal::DirectoryPart(path)) {
    if (path.empty() || path == "/") throw std::invalid_argument("no such directory: " + directory);
    missing.push_back(path);
  }
  for (auto path = missing.rbegin(); path != missing.rend(); ++path) {
    Record("dir " + *path);
    if (::mkdir(path->c_str(), 0755) != 0) Fail("cannot make the directory", *path);
    ReachedStep();
  }
}

void Transaction::WriteText(const std::string& path, const std::string& text, const FileAttributes& attributes) {
  Announce(path);
  ReplaceFileWithText(path, text, attributes);
  ReachedStep();
}

void Transaction::CopyFile(const std::string& path, const std::string& source, const FileAttributes& attributes) {
  Announce(path);
  ReplaceFileWithCopy(path, source, attributes);
  ReachedStep();
}

void Transaction::MakeSymlink(const std::string& path, const std::string& linkText, uid_t owner, gid_t group) {
  Announce(path);
  ReplaceWithSymlink(path, linkText, owner, group);
  ReachedStep();
}

void Transaction::Remove(const std::string& path) {
  struct stat info {};
  if (!LStat(path, info)) return;
  Announce(path);
  RemoveFileIfPresent(path);
  ReachedStep();
}

void Transaction::Commit() {
  ::sync();
  RemoveFileIfPresent(paths_.marker);
  SyncDirectory(tal::DirectoryPart(paths_.marker));
  open_ = false;
  ReachedStep();
  RemoveTree(paths_.directory);
}

void Transaction::RollBack() {
  UndoJournal(paths_);
  open_ = false;
  Finish(paths_);
}

void Transaction::UndoJournal(const Paths& paths) {
  std::vector<std::string> records;
  // A record without its line end was cut short by a crash: its change was never made.
  const std::string journal = tal::ReadWholeFile(JournalPath(paths));
  for (size_t start = 0, end; (end = journal.find('\n', start)) != std::string::npos; start = end + 1) {
    records.push_back(journal.substr(start, end - start));
  }
  std::string failures;
  for (auto record = records.rbegin(); record != records.rend(); ++record) {
    try {
      if (!UndoRecord(paths, *record)) failures += "\n  unknown journal record: " + *record;
    } catch (const std::exception& error) {
      failures += std::string("\n  ") + error.what();
    }
  }
  if (!failures.empty()) throw std::runtime_error("the roll-back left things undone:" + failures);
}

void Transaction::Finish(const Paths& paths) {
  ::sync();
  RemoveFileIfPresent(paths.marker);
  SyncDirectory(tal::DirectoryPart(paths.marker));
  if (!paths.directory.empty()) RemoveTree(paths.directory);
}

bool Transaction::RecoverUnfinished(const Paths& paths) {
  RemoveFileIfPresent(TemporaryPathFor(paths.marker));
  struct stat marker {};
  if (!LStat(paths.marker, marker)) {
    if (!paths.directory.empty()) RemoveTree(paths.directory);
    return false;
  }
  struct stat journal {};
  if (!paths.directory.empty() && LStat(JournalPath(paths), journal)) {
    UndoJournal(paths);
  } else if (marker.st_size > 0) {
    KX_LOG(tal::logmask::kError, "No journal for the interrupted installation: config.old becomes config.cdf again");
    CopyEntry(paths.marker, paths.configuration);
  } else {
    RemoveFileIfPresent(paths.configuration);
  }
  Finish(paths);
  return true;
}

}  // namespace kx::daemon
