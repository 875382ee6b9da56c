#pragma once
// The two states the installation actions depend on: safe mode (a marker file
// exists) and install mode (the system-state file says so). Both are read from
// disk on every call; the controller-state service owns them.

#include "platform/controller_state.h"

namespace kx::actions {

using platform::IsInstallMode;
using platform::IsSafeMode;
using platform::SafeModeMarkerPath;
using platform::SystemStatePath;

}  // namespace kx::actions
