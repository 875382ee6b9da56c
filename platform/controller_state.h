#pragma once
// Where the controller keeps its action files and which mode it runs in. Paths
// are built on every call below the system root.

#include <string>

namespace kx::platform {

// "/etc/brenmar/share" below the root: the state files and target.ini.
std::string ConfigurationDirectory();
// "/mnt/userfs/.syscfg-action" in safe mode, "/.syscfg-action" otherwise, below the root.
std::string ActionExchangeDirectory();

// The marker "/etc/brenmar/safemode" exists.
bool IsSafeMode();
// "/tmp/kx_system_state" is a regular file holding exactly "Install Mode".
bool IsInstallMode();

}  // namespace kx::platform
