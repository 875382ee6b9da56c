#include "daemon/transaction.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "daemon/below_root.h"
#include "daemon/fault_injection.h"
#include "kx/tal/log.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"
#include "platform/remove_dir_hierarchy.h"

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
  if (LStat(path, info) && platform::RemoveDirHierarchy(path) != 0) {
    throw std::runtime_error("cannot remove " + path);
  }
}

// A journal could have been damaged: every path it names must lie below the root.
bool IsBelowRoot(const std::string& path) {
  const std::string root = tal::SystemRoot();
  const std::string prefix = root == "/" ? "/" : root + "/";
  return path.size() > prefix.size() && path.compare(0, prefix.size(), prefix) == 0 && tal::CleanPath(path) == path;
}

bool IsNumber(const std::string& text) {
  return !text.empty() && text.size() <= 10 && text.find_first_not_of("0123456789") == std::string::npos;
}

// Journal paths are one line each, whatever characters they hold.
std::string Escape(const std::string& path) {
  std::string escaped;
  for (const char c : path) {
    if (c == '\\') {
      escaped += "\\\\";
    } else if (c == '\n') {
      escaped += "\\n";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

// False for a sequence this code does not write.
bool Unescape(const std::string& escaped, std::string& path) {
  path.clear();
  for (size_t i = 0; i < escaped.size(); ++i) {
    if (escaped[i] != '\\') {
      path += escaped[i];
    } else if (++i < escaped.size() && (escaped[i] == '\\' || escaped[i] == 'n')) {
      path += escaped[i] == 'n' ? '\n' : '\\';
    } else {
      return false;
    }
  }
  return true;
}

struct JournalRecord {
  std::string kind;
  std::vector<std::string> fields;  // the numbers between the kind and the path
  std::string path;
};

// "<kind> <number>… <path>", with as many numbers as the kind has.
bool ParseRecord(const std::string& line, JournalRecord& record) {
  size_t start = line.find(' ');
  if (start == std::string::npos) return false;
  record.kind = line.substr(0, start++);
  const size_t fields = record.kind == "saved" ? 1 : record.kind == "olddir" ? 3 : 0;
  while (record.fields.size() < fields) {
    const size_t space = line.find(' ', start);
    if (space == std::string::npos) return false;
    record.fields.push_back(line.substr(start, space - start));
    start = space + 1;
  }
  for (const std::string& field : record.fields) {
    if (!IsNumber(field)) return false;
  }
  return Unescape(line.substr(start), record.path) && IsBelowRoot(record.path);
}

void RestoreDirectory(const std::string& path, mode_t mode, uid_t owner, gid_t group) {
  const EntryBelowRoot entry = ReachBelowRoot(path);
  const int directory = entry.Directory();
  if (::mkdirat(directory, entry.Name(), 0700) != 0 && errno != EEXIST) Fail("cannot make the directory", path);
  if (::fchownat(directory, entry.Name(), owner, group, AT_SYMLINK_NOFOLLOW) != 0 && ::geteuid() == 0) {
    Fail("cannot set the owner of", path);
  }
  if (::fchmodat(directory, entry.Name(), mode, AT_SYMLINK_NOFOLLOW) != 0) Fail("cannot set the mode of", path);
}

// Undoes one journal record; false when the record is not one this code writes.
bool UndoRecord(const Transaction::Paths& paths, const std::string& line) {
  JournalRecord record;
  if (!ParseRecord(line, record)) return false;
  const std::string& path = record.path;
  struct stat info {};
  if (record.kind == "saved") {
    LinkOrCopyEntry(BackupPath(paths, record.fields[0]), path);
    return true;
  }
  if (record.kind == "olddir") {
    const std::string& mode = record.fields[0];
    if (mode.size() > 4 || mode.find_first_not_of("01234567") != std::string::npos) return false;
    RestoreDirectory(path, static_cast<mode_t>(std::stoul(mode, nullptr, 8)),
                     static_cast<uid_t>(std::stoul(record.fields[1])),
                     static_cast<gid_t>(std::stoul(record.fields[2])));
    return true;
  }
  if (record.kind == "new") {
    RemoveFileIfPresent(TemporaryPathFor(path));
    if (LStat(path, info) && !S_ISDIR(info.st_mode)) RemoveFileIfPresent(path);
    return true;
  }
  if (record.kind == "dir") {
    const EntryBelowRoot entry(path);
    if ((!entry.IsOpen() || ::unlinkat(entry.Directory(), entry.Name(), AT_REMOVEDIR) != 0) && errno != ENOENT) {
      Fail("cannot remove the directory", path);
    }
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
  journal_ = tal::osdep::Open(journal, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
  if (!journal_.IsOpen()) Fail("cannot create", journal);
  AppendDurably(journal_.Get(), "", journal);
  SyncDirectory(paths_.directory);
  if (LStat(paths_.configuration, info)) {
    CopyEntry(paths_.configuration, paths_.marker);
  } else {
    ReplaceFileWithText(paths_.marker, "", FileAttributes{});
  }
  SyncDirectory(tal::DirectoryPart(paths_.marker));
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
}

void Transaction::Record(const std::string& line) {
  AppendDurably(journal_.Get(), line + "\n", JournalPath(paths_));
  ReachedStep();
}

void Transaction::Announce(const std::string& path) {
  if (!announced_.insert(path).second) return;
  struct stat info {};
  if (!LStat(path, info)) {
    Record("new " + Escape(path));
    return;
  }
  if (S_ISDIR(info.st_mode)) {
    errno = EISDIR;
    Fail("cannot replace", path);
  }
  const std::string number = std::to_string(++backups_);
  LinkOrCopyEntry(path, BackupPath(paths_, number));
  SyncDirectory(paths_.directory);
  Record("saved " + number + " " + Escape(path));
}

void Transaction::AnnounceDirectory(const std::string& path, const struct stat& info) {
  char mode[8];
  std::snprintf(mode, sizeof mode, "%o", static_cast<unsigned>(info.st_mode & 07777));
  Record(std::string("olddir ") + mode + " " + std::to_string(info.st_uid) + " " + std::to_string(info.st_gid) + " " +
         Escape(path));
}

void Transaction::MakeDirectories(const std::string& directory) {
  std::vector<std::string> missing;
  struct stat info {};
  for (std::string path = tal::CleanPath(directory); !LStat(path, info); path = tal::DirectoryPart(path)) {
    if (path.empty() || path == "/") throw std::invalid_argument("no such directory: " + directory);
    missing.push_back(path);
  }
  for (auto path = missing.rbegin(); path != missing.rend(); ++path) {
    Record("dir " + Escape(*path));
    const EntryBelowRoot entry = ReachBelowRoot(*path);
    if (::mkdirat(entry.Directory(), entry.Name(), 0755) != 0) Fail("cannot make the directory", *path);
    ReachedStep();
  }
}

void Transaction::WriteFile(const std::string& path, const std::function<void(int fd)>& fill,
                            const FileAttributes& attributes) {
  Announce(path);
  ReplaceFile(path, fill, attributes);
  ReachedStep();
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

void Transaction::RemoveDirectory(const std::string& path) {
  struct stat info {};
  if (!LStat(path, info) || !S_ISDIR(info.st_mode)) {
    errno = ENOTDIR;
    Fail("cannot remove the directory", path);
  }
  AnnounceDirectory(path, info);
  const EntryBelowRoot entry = ReachBelowRoot(path);
  if (::unlinkat(entry.Directory(), entry.Name(), AT_REMOVEDIR) != 0) Fail("cannot remove the directory", path);
  ReachedStep();
}

void Transaction::SetDirectoryAttributes(const std::string& path, const FileAttributes& attributes) {
  struct stat info {};
  if (!LStat(path, info) || !S_ISDIR(info.st_mode)) {
    errno = ENOTDIR;
    Fail("cannot change the directory", path);
  }
  const bool sameOwner = (attributes.owner == static_cast<uid_t>(-1) || attributes.owner == info.st_uid) &&
                         (attributes.group == static_cast<gid_t>(-1) || attributes.group == info.st_gid);
  if (sameOwner && (info.st_mode & 07777) == attributes.mode) return;
  AnnounceDirectory(path, info);
  const EntryBelowRoot entry = ReachBelowRoot(path);
  // chown before chmod: a change of owner may clear set-ID bits.
  if (!sameOwner &&
      ::fchownat(entry.Directory(), entry.Name(), attributes.owner, attributes.group, AT_SYMLINK_NOFOLLOW) != 0) {
    Fail("cannot set the owner of", path);
  }
  if (::fchmodat(entry.Directory(), entry.Name(), attributes.mode, AT_SYMLINK_NOFOLLOW) != 0) {
    Fail("cannot set the mode of", path);
  }
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
