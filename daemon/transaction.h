#pragma once
// All-or-nothing changes to the controller's files.
//
// Before the first change "config.cdf" is copied to "config.old" (an empty
// "config.old" when there was no "config.cdf"): while that marker exists the
// installed files may be partly old and partly new. Every change is announced
// in a journal first, with a copy of whatever it overwrites or removes:
//   dir <path>          a directory is about to be made
//   new <path>          a file or link is about to be made where there was none
//   saved <n> <path>    backup <n> holds the entry about to be replaced or removed
//   olddir <mode> <uid> <gid> <path>
//                       a directory about to be removed, or to get another mode
//                       or owner, had these (mode in octal)
// Each record is on the disk before its change is made, so rolling back (the
// records undone from the last to the first) always finds what it needs, and
// can be repeated when it was itself interrupted. Committing syncs everything
// and only then removes the marker: from that moment the new state holds.
// Backups are hard links where the file system allows it: every change
// replaces an entry by renaming, so the backup's inode is never written.
//
// Paths are host paths below the system root, reached without following a
// link (below_root.h); in the journal a line feed in one is written "\n" and a
// backslash "\\".

#include <sys/types.h>

#include <functional>
#include <set>
#include <string>

#include "daemon/file_operations.h"
#include "kx/tal/osdep/posix_io.h"

namespace kx::daemon {

class Transaction {
 public:
  struct Paths {
    std::string directory;      // journal and backups, made afresh
    std::string configuration;  // "config.cdf"
    std::string marker;         // "config.old"
  };

  // Opens the transaction: the directory with an empty journal, then the marker.
  explicit Transaction(Paths paths);
  // Rolls back when neither Commit nor RollBack was called.
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  // Makes the missing directories of the path (mode 0755), top first.
  void MakeDirectories(const std::string& directory);
  // Writes the file with `fill`, given the descriptor of its new content.
  void WriteFile(const std::string& path, const std::function<void(int fd)>& fill, const FileAttributes& attributes);
  void WriteText(const std::string& path, const std::string& text, const FileAttributes& attributes);
  void CopyFile(const std::string& path, const std::string& source, const FileAttributes& attributes);
  void MakeSymlink(const std::string& path, const std::string& linkText, uid_t owner, gid_t group);
  // A missing file is no error; a directory is refused.
  void Remove(const std::string& path);
  // An empty directory.
  void RemoveDirectory(const std::string& path);
  // Mode (set-ID and sticky bits included) and owner of an existing directory;
  // an owner or group of -1 stays.
  void SetDirectoryAttributes(const std::string& path, const FileAttributes& attributes);

  void Commit();
  // Puts every changed entry back; throws std::runtime_error naming what could
  // not be restored (the marker then stays, so the next start tries again).
  void RollBack();

  // At start-up: a marker left by a transaction that neither committed nor
  // rolled back means an interrupted one: roll it back from its journal (or,
  // when the journal is gone, put "config.old" back as "config.cdf") and remove
  // the marker. Also removes the leftovers of finished transactions. True when
  // an interrupted transaction was found. Throws as RollBack.
  static bool RecoverUnfinished(const Paths& paths);

 private:
  // Journals `path` (its backup, or that it is new) once per transaction.
  void Announce(const std::string& path);
  // Journals the mode and owner of a directory before they change.
  void AnnounceDirectory(const std::string& path, const struct stat& info);
  void Record(const std::string& line);
  static void UndoJournal(const Paths& paths);
  static void Finish(const Paths& paths);

  Paths paths_;
  tal::osdep::FileDescriptor journal_;
  int backups_ = 0;
  std::set<std::string> announced_;
  bool open_ = true;
};

}  // namespace kx::daemon
