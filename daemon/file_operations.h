#pragma once
// File operations of the installer that must survive a crash at any moment: a
// file is replaced by writing a temporary file beside it, syncing it and
// renaming it over the old one, so the path always holds either the old or the
// new content. Paths are host paths below the system root, reached without
// following a symbolic link on the way (below_root.h): a link there fails the
// operation with ELOOP. Failures throw std::system_error naming the path.

#include <sys/stat.h>
#include <sys/types.h>

#include <ctime>
#include <functional>
#include <string>

#include "kx/tal/osdep/posix_io.h"

namespace kx::daemon {

// The temporary file beside `path` that a replacement goes through. Its name is
// fixed so that a restart after a crash knows what to remove.
std::string TemporaryPathFor(const std::string& path);

// Mode, owner and group given to a file; -1 leaves owner or group as created.
// The modification time stays that of the writing unless one is given.
struct FileAttributes {
  mode_t mode = 0644;
  uid_t owner = static_cast<uid_t>(-1);
  gid_t group = static_cast<gid_t>(-1);
  timespec modified{0, UTIME_OMIT};
};

// Writes the temporary file with `fill` (given its descriptor), gives it the
// attributes, syncs it and renames it over `path`.
void ReplaceFile(const std::string& path, const std::function<void(int fd)>& fill, const FileAttributes& attributes);
void ReplaceFileWithText(const std::string& path, const std::string& text, const FileAttributes& attributes);
// The content of the regular file `source`.
void ReplaceFileWithCopy(const std::string& path, const std::string& source, const FileAttributes& attributes);

// A regular file opened for reading, `info` its status; anything else, a link
// included, is refused.
tal::osdep::FileDescriptor OpenRegularFile(const std::string& path, struct stat& info);
// The whole content of a regular file, opened as OpenRegularFile does.
std::string ReadRegularFile(const std::string& path, struct stat& info);

// Makes `path` a symbolic link to `linkText`, replacing what was there.
void ReplaceWithSymlink(const std::string& path, const std::string& linkText, uid_t owner = static_cast<uid_t>(-1),
                        gid_t group = static_cast<gid_t>(-1));

// Replaces `to` with an exact copy of a regular file (content, mode, owner) or
// of a symbolic link, synced. Anything else is refused. Makes backups and puts
// them back.
void CopyEntry(const std::string& from, const std::string& to);

// As CopyEntry, but through a hard link (the same inode, nothing copied) when
// both lie on one file system. Only for entries that are replaced by renaming,
// never rewritten in place: a hard link shares every later change.
void LinkOrCopyEntry(const std::string& from, const std::string& to);

// Removes a file or link; a missing one is no error.
void RemoveFileIfPresent(const std::string& path);

// Appends the text and syncs it to the disk.
void AppendDurably(int fd, const std::string& text, const std::string& pathForMessages);

// Makes a completed rename or removal in `directory` durable.
void SyncDirectory(const std::string& directory);

// lstat: false when nothing is there.
bool LStat(const std::string& path, struct stat& info);

}  // namespace kx::daemon
