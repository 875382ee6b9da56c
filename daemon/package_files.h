#pragma once
// The files of a package on the controller: what installing it writes and what
// removing it takes away, worked out before anything is changed so that a
// package that cannot be installed is refused with the controller untouched.
//
// Decisions:
// - A plain CODEBASE gets its PERMISSIONS ("rwxr-xr-x" or octal; by default the
//   mode of its source file), OWNER and GROUP (names or numbers; by default
//   those of the daemon).
// - A TAR CODEBASE unpacks into its TARGET directory. Entries keep the archive's
//   permission bits (set-ID and sticky bits dropped) and get the CODEBASE's OWNER
//   and GROUP. What it unpacked is recorded in the package's file list
//   "installed-files/<NAME>.list" of the configuration directory, so that a
//   removal knows what to take away.
// - MERGEINI keys are merged into the INI file at installation; a removal leaves
//   them, since other packages may rely on the same keys.
// - A removal takes away files and links, never directories.

#include <string>
#include <vector>

#include "catalogue/package.h"
#include "daemon/file_operations.h"

namespace kx::daemon {

struct FileOperation {
  enum class Kind { kCopy, kSymlink, kDirectory, kMergeIni, kText, kRemove };
  Kind kind = Kind::kCopy;
  // The path on the controller, resolved again when the operation is carried
  // out; empty for the daemon's own files, which `hostPath` names.
  std::string targetPath;
  std::string hostPath;
  // kCopy: host path of the source file; kSymlink: the link's text;
  // kMergeIni: the INI text to merge; kText: the file's text.
  std::string content;
  FileAttributes attributes;
};

// The operations that install `package`. TAR codebases are unpacked below
// `scratchDirectory`. Throws UpdateRefused when a source file is missing or
// lies outside the package's directory, a target or link is not usable, or
// PERMISSIONS, OWNER or GROUP cannot be applied.
std::vector<FileOperation> PrepareInstallation(const catalogue::Package& package, const std::string& scratchDirectory);

// The kRemove operations for the files and links that the installed `package`
// put on the controller, its file list included. A target that cannot be
// resolved is reported and left out.
std::vector<FileOperation> PrepareRemoval(const catalogue::Package& package);

}  // namespace kx::daemon
