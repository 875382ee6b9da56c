#pragma once
// SIGTERM and SIGINT ask the daemon to stop. The handler only sets a flag: the
// daemon looks at it between two steps of its work and ends cleanly there.

namespace kx::daemon {

// Throws std::system_error when a handler cannot be installed.
void InstallStopHandlers();
bool StopRequested();

}  // namespace kx::daemon
