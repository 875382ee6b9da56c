#pragma once
// Result codes of the installation actions: signed 32-bit, COM style, negative is
// failure. The web methods answer them and the daemon records them as an
// action's result; the XML answers write them as signed decimal numbers.

#include <cstdint>

namespace kx::exchange {

constexpr int32_t kResultOk = 0;
// The action lock is held by the asking action already.
constexpr int32_t kResultAlreadyHeld = 1;
constexpr int32_t kResultNotImplemented = static_cast<int32_t>(0x80004001u);
// Action not allowed, or an unspecified failure.
constexpr int32_t kResultFail = static_cast<int32_t>(0x80004005u);
// Bad or missing POST value, or the caller does not hold the action lock.
constexpr int32_t kResultInvalidArgument = static_cast<int32_t>(0x80070057u);
// A request file's INI document could not be made or filled.
constexpr int32_t kResultOutOfMemory = static_cast<int32_t>(0x8007000Eu);
// A request file could not be saved or written.
constexpr int32_t kResultSaveFailed = static_cast<int32_t>(0x80041CF0u);
// Formatting is not allowed in run mode without permission.
constexpr int32_t kResultFormatNotAllowed = static_cast<int32_t>(0x800407F0u);
// Installation refused: the installed configuration holds the safe-mode component.
constexpr int32_t kResultSafeModeInstalled = static_cast<int32_t>(0x800407FBu);
// The software-update pre-check failed.
constexpr int32_t kResultUpdateBlocked = static_cast<int32_t>(0x800407C9u);
// The software-update pre-check failed for an empty action text.
constexpr int32_t kResultUpdateBlockedNoAction = static_cast<int32_t>(0x80041CF3u);
// The caller does not hold the action lock.
constexpr int32_t kResultNotLockHolder = static_cast<int32_t>(0x800407E2u);
// An uploaded system image is corrupt.
constexpr int32_t kResultCorruptImage = static_cast<int32_t>(0x800407CDu);
// The format request file has no path.
constexpr int32_t kResultNoRequestPath = static_cast<int32_t>(0x800407FEu);

// InstalledComponents without "config.cdf" (positive codes are successful answers too):
constexpr int32_t kResultNoConfiguration = 0x41CE7;             // neither config.cdf nor config.old
constexpr int32_t kResultFailedInstallPending = 0x4089A;        // config.old and a pending action
constexpr int32_t kResultFailedInstall = kResultNotLockHolder;  // config.old, no action

}  // namespace kx::exchange
