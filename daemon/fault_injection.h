#pragma once
// For the crash tests: with KXSID_KILL_AT_STEP=N in the environment the daemon
// kills itself (SIGKILL, nothing cleaned up) when it reaches the N-th step of an
// installation, so a test can interrupt it at every point in turn. A step is
// each record of the transaction journal and each change on disk.

namespace kx::daemon {

// Counts one step; kills the process when the count reaches KXSID_KILL_AT_STEP.
void ReachedStep();

}  // namespace kx::daemon
