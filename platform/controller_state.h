#pragma once
// Where the controller keeps its action files and which mode it runs in. Paths
// are built on every call below the system root.

#include <string>

namespace kx::platform {

// "/etc/brenmar/share" below the root: the state files and target.ini.
std::string ConfigurationDirectory();
// "/mnt/userfs/.syscfg-action" in safe mode, "/.syscfg-action" otherwise, below the root.
std::string ActionExchangeDirectory();

// "/etc/brenmar/safemode" and "/tmp/kx_system_state" below the root.
std::string SafeModeMarkerPath();
std::string SystemStatePath();

// The safe-mode marker exists, whatever its file type.
bool IsSafeMode();
// The system-state file is a regular file holding exactly "Install Mode"; a
// missing or unreadable file means false.
bool IsInstallMode();

}  // namespace kx::platform
