#pragma once
// SIGTERM and SIGINT ask the daemon to stop. The handler only sets a flag: the
// daemon looks at it between two steps of its work and ends cleanly there.

namespace kx::daemon {

// Throws std::system_error when a handler cannot be installed.
void InstallStopHandlers();
bool StopRequested();
// Throws std::runtime_error when a stop was asked for: the work in hand is
// abandoned (and rolled back) there.
void ThrowIfStopRequested();

}  // namespace kx::daemon
