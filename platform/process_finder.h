#pragma once
// Finds a running process by its command name, as the kernel reports it in
// /proc/<pid>/stat. /proc is the real one, never below the system root.

#include <sys/types.h>

#include <string>

namespace kx::platform {

// The pid of the first process (in /proc directory order) whose command name
// equals `name` exactly, or 0 when there is none.
pid_t FindProcess(const std::string& name);

// True when a process named "kxsid" runs.
bool IsDaemonRunning();

}  // namespace kx::platform
