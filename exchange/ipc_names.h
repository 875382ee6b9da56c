#pragma once
// How the plug-in and the daemon reach each other beside the files: the daemon's
// process name, the event that wakes it, and the region (with its mutex, which
// also guards the action files) where it publishes the current action.

#include <cstdint>

namespace kx::exchange {

constexpr char kDaemonProcessName[] = "kxsid";
constexpr char kRequestReadyEventName[] = "SoftwareActionRequestReady";
constexpr char kProgressMutexName[] = "SoftwareUpdateProgressMutex";
constexpr char kProgressRegionName[] = "SoftwareUpdateProgressSharedMem";
constexpr uint32_t kProgressRegionSize = 5000;

}  // namespace kx::exchange
