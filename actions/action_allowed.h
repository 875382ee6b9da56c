#pragma once
#include <cstdint>
#include <string>

namespace kx::actions {

// Whether an action may be requested now.
// Run mode: 0 when allowedInRunMode; otherwise 0x800407F0 for "Format" and
// 0x80004005 for any other method name.
// Safe mode: 0 when the installation daemon runs, else 0x80004005, whatever the flag.
[[nodiscard]] int32_t IsActionAllowed(const std::string& webMethodName, bool allowedInRunMode);

}  // namespace kx::actions
