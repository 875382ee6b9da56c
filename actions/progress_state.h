#pragma once
// The progress region that the installation daemon fills, and the cross-process
// mutex that guards it together with the action files. Every handler that
// touches the action files or the region holds the mutex from its first step to
// its return.

#include "kx/tal/osdep/named_mutex.h"
#include "kx/tal/osdep/simple_shared_memory.h"

namespace kx::actions {

// Built on first use and kept until the library is unloaded. Throws PosixError
// when its lock file cannot be made.
tal::osdep::NamedMutex& ProgressMutex();

// The region, or null when it was not (or could not be) created. The plug-in's
// context owns it and sets it here, for the handlers.
tal::osdep::SimpleSharedMemory* ProgressRegion();
void SetProgressRegion(tal::osdep::SimpleSharedMemory* region);

}  // namespace kx::actions
