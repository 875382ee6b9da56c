#pragma once
// The action state files in the configuration directory ("lastAction.xml" and
// the like), written whole and handed to the default owner, group and mode.

#include <string>

namespace kx::actions {

// Writes `text` as the file `fileName` of the configuration directory, then sets
// the default owner, group and mode (a failure there is logged, not returned).
// False when the name is not a plain file name or the file cannot be written;
// never throws.
[[nodiscard]] bool CreateActionXML(const std::string& fileName, const std::string& text) noexcept;

}  // namespace kx::actions
