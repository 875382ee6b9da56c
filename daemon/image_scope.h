#pragma once
// What of the system root a system image holds: everything but
//   - the action exchange directories ("/.syscfg-action" and, for safe mode,
//     "/mnt/userfs/.syscfg-action") and the web host's upload directories
//     beside them (".kx-uploads"): the transfers of the action in hand
//   - "/proc", "/sys", "/dev", "/tmp", "/run", "/var/tmp" and the shared-file
//     directory (named mutexes and events): the running system, not its software
//   - the daemon's own state: its transaction, "config.old",
//     "currentAction.xml", "lastAction.xml" and the installation status log,
//     which tell about the action in hand
//   - every path of the blacklist.
// An excluded path is left out with everything below it; a restore leaves it
// as it is.
//
// Paths here are relative to the system root, without a leading "/" ("etc/x").

#include <set>
#include <string>
#include <string_view>

namespace kx::daemon {

class ImageScope {
 public:
  // `blacklistFile`: a local path, or "" for none. Each line is a path relative
  // to the exchange base (the system root; in safe mode "/mnt/userfs" below
  // it), as the plug-in writes them. Throws when the file cannot be read,
  // which includes a link on the way to it (file_operations.h).
  explicit ImageScope(const std::string& blacklistFile);

  bool Excludes(std::string_view relativePath) const;

 private:
  std::set<std::string, std::less<>> excluded_;
};

// The path of `localPath` relative to the system root; throws
// std::invalid_argument when it does not lie below the root.
std::string RelativeToRoot(const std::string& localPath);

}  // namespace kx::daemon
