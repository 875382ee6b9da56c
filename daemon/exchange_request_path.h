#pragma once
// Paths that a request file names in the action exchange directory (the image
// to make or to restore, the blacklist file), turned into the path on this
// machine. The plug-in writes them in three forms:
//   "<root>/.syscfg-action/A1/…"        its own local path (the root in front)
//   "/.syscfg-action/A1/…"              as the remote host sees it
//   "/mnt/userfs/.syscfg-action/A1/…"   written in run mode for a daemon that
//                                       reads it after the restart into install mode
// Whatever the form, the result lies in the action exchange directory of the
// present mode.

#include <string>

namespace kx::daemon {

// Throws std::invalid_argument for a path with a ".." component, one outside
// the action exchange directory, or one that names that directory itself.
std::string LocalExchangePath(const std::string& written);

}  // namespace kx::daemon
