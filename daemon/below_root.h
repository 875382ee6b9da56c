#pragma once
// Reaching a path below the system root without following a symbolic link
// anywhere on the way, the last component included.
//
// Every path the daemon reads or writes for a request (the image to restore,
// the files of a package, the controller's files it installs, merges, saves
// and puts back) goes through here, so neither a link planted in the tree nor
// one swapped in after a check can lead a read or a write elsewhere. The root
// itself is opened as it is named: where it lies is the administrator's
// choice. Where a link in the controller's tree is meant to be followed, the
// caller resolves it first (rooted_target.h) and hands over the result.
//
// openat2(2) with RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS walks the path in the
// kernel (Linux 5.6 and later); other kernels get the same walk as openat(2)
// calls, one component at a time, each with O_NOFOLLOW.

#include <sys/types.h>

#include <string>

#include "kx/tal/osdep/posix_io.h"

namespace kx::daemon {

// A host path below the system root, as the directory that holds it (opened
// O_PATH) and its name in there: the *at calls on the pair act on the entry
// itself and never pass a link. The root itself is its own directory and ".".
class EntryBelowRoot {
 public:
  // Not open, errno set, on failure: ELOOP when a component on the way is a
  // symbolic link, EXDEV when the path is not below the root or climbs with
  // "..", otherwise as openat(2).
  explicit EntryBelowRoot(const std::string& hostPath);

  bool IsOpen() const { return directory_.IsOpen(); }
  int Directory() const { return directory_.Get(); }
  const char* Name() const { return name_.c_str(); }

 private:
  tal::osdep::FileDescriptor directory_;
  std::string name_;
};

// As the constructor, but throws std::system_error naming the path.
EntryBelowRoot ReachBelowRoot(const std::string& hostPath);

// open(2) of the entry at `hostPath`, O_NOFOLLOW added: a link, also as the
// last component, gives ELOOP. Not open, errno set, on failure.
tal::osdep::FileDescriptor OpenBelowRoot(const std::string& hostPath, int flags, mode_t mode = 0);

// The directory at `relativePath` below the directory `root` (O_PATH), links
// refused with ELOOP; by the kernel's walk, or by the one of openat(2) calls.
// Both are offered so that both are tested on any kernel.
tal::osdep::FileDescriptor OpenDirectoryByKernelWalk(int root, const std::string& relativePath);
tal::osdep::FileDescriptor OpenDirectoryStepByStep(int root, const std::string& relativePath);

}  // namespace kx::daemon
