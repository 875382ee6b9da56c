#pragma once
// The file of the progress region (exchange::kProgressRegionName in the
// shared-file directory) as the plug-in and the daemon open and read it.

#include <memory>
#include <string>

#include "kx/tal/osdep/named_mutex.h"
#include "kx/tal/osdep/simple_shared_memory.h"

namespace kx::platform {

// Opens the region (exchange::kProgressRegionName, kProgressRegionSize) with
// `mutex` as its lock. The file is for the plug-in and the daemon alone: made
// for its owner only, then given owner "opuser", group "kx" and mode rw-rw----
// (through its descriptor, never through a link put in its place), so that it
// is never writable by others. An existing file gets the same; a failure there
// is logged. Throws as SimpleSharedMemory does.
std::unique_ptr<tal::osdep::SimpleSharedMemory> OpenProgressRegion(tal::osdep::NamedMutex* mutex);

// The NUL-terminated text of the region's data, read from its file with pread
// rather than through the mapping: another process may shorten the file at any
// moment, and touching a mapped page past its end kills the reader (SIGBUS),
// while pread only returns less. "" when the file is gone. Throws
// SharedMemoryCorrupted when the file is shorter than the region or its length
// word differs, PosixError when it cannot be read (a FIFO or directory in its
// place). The caller holds the region's mutex.
std::string ReadProgressText(const tal::osdep::SimpleSharedMemory& region);

}  // namespace kx::platform
