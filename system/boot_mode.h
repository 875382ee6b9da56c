#pragma once
// The boot mode: a word in a small file that the boot scripts read to decide
// whether the controller starts its runtime or its installation environment.

#include <cstdint>
#include <string>

namespace kx::system {

enum BootMode : uint32_t { kRuntimeBootMode = 0, kInstallBootMode = 1 };

// "/tmp/kx_boot_mode_input" below the system root.
std::string BootModeFilePath();

// Writes the mode's word ("runtime" or "install", no line end) to the boot-mode
// file and reboots. An unknown mode is logged and nothing else happens; a file
// that cannot be written is logged and the reboot goes ahead all the same.
void SetBootModeAndReboot(uint32_t mode);

}  // namespace kx::system
