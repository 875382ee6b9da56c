#pragma once
// The two states the installation actions depend on: safe mode (a marker file
// exists) and install mode (the system-state file says so). Both are read from
// disk on every call.

#include <string>

namespace kx::actions {

// "/etc/brenmar/safemode" below the system root.
std::string SafeModeMarkerPath();
// "/tmp/kx_system_state" below the system root.
std::string SystemStatePath();

// True when the safe-mode marker exists, whatever its file type.
bool IsSafeMode();
// True when the whole content of the system-state file is exactly "Install Mode".
// A missing or unreadable file means false.
bool IsInstallMode();

}  // namespace kx::actions
