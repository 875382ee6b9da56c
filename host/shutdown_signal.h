#pragma once
// SIGINT and SIGTERM end the host. The handler only writes to a pipe, so the
// signals stay unblocked everywhere (programs the plug-in starts inherit a
// normal signal mask) and the main thread does the shutting down.

namespace kx::webhost {

// Installs the handlers; SIGPIPE is caught and does nothing. Throws std::system_error.
void InstallShutdownHandlers();
// Blocks until SIGINT or SIGTERM arrives (or has arrived); returns its number.
int WaitForShutdownSignal();

}  // namespace kx::webhost
