#pragma once
// Restarting the controller with the system's reboot command.

#include <string>

namespace kx::system {

// "/sbin/reboot" below the system root.
std::string RebootCommandPath();

// Runs the reboot command (no shell, no arguments) and watches it for about half
// a second: five polls 100 ms apart. A command that exits with a non-zero status
// in that time is logged as a missing permission; one still running is left
// alone. Failures go to the system log only.
void Reboot();

}  // namespace kx::system
