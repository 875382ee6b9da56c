#pragma once
// Whether the configuration an update would leave behind can work.

#include "daemon/daemon_settings.h"
#include "daemon/update_plan.h"

namespace kx::daemon {

// Throws UpdateRefused, naming the package and what it lacks, when a hard
// dependency of a package of the new configuration is met by no package of it,
// or when a package to be installed does not suit this controller (its
// PROCESSOR, DEVICECLASS or OS conditions against the settings). An unmet soft
// dependency is only reported.
void CheckUpdate(const UpdatePlan& plan, const DaemonSettings& settings);

}  // namespace kx::daemon
