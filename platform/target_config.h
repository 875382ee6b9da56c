#pragma once
// The target-configuration service: what the controller says about itself.
//
// Values come from the optional file "target.ini" in the configuration
// directory, section "Target", read on every call:
//   HostName     default: the system's host name
//   TargetClass  default: "Linux"
//   TargetID     decimal or 0x-hexadecimal, default 0 (other text fails the read)
//   MACAddress   six hexadecimal bytes joined by ":" or "-"; default: the first
//                non-loopback interface under /sys/class/net with a non-zero address
// The functions return 0 on success and 0x80004005 on failure.

#include <array>
#include <cstdint>
#include <string>

using MacAddress = std::array<uint8_t, 6>;

// "Safe Mode", "Install Mode" or "Running"; the flag is true in the first two.
[[nodiscard]] int32_t GetSystemState(std::string& stateText, bool& flag);

[[nodiscard]] int32_t kx_targetcfg_system_GetHostName(std::string& hostName);
[[nodiscard]] int32_t kx_targetcfg_system_GetTargetClass(std::string& targetClass);
[[nodiscard]] int32_t targetcfgGetTargetID(uint32_t& targetId);
// Fails when target.ini holds a malformed address or no interface has one.
[[nodiscard]] int32_t targetcfgGetDefaultMACAddress(MacAddress& mac);
