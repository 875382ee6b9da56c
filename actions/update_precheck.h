#pragma once
// Whether a software update may begin at all, judged from the installed
// configuration before the action lock is taken.

#include <cstdint>
#include <string>

namespace kx::actions {

// Loads "config.cdf" of the configuration directory. A negative load status is
// the result. Otherwise the first supported stack decides: when it is managed by
// the package system the update is refused with 0x800407C9 (0x80041CF3 when
// `action` is empty); in every other case, a failed query or no stack included,
// the result is 0.
[[nodiscard]] int32_t SoftwareUpdatePreCheck(const std::string& action);

}  // namespace kx::actions
