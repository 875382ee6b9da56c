#pragma once
#include <cstdint>
#include <string>

namespace kx::platform {

// Removes a directory tree: its contents first, then the directory itself.
// Symbolic links are removed, never followed. A failure is logged and the walk
// goes on. 0 when everything was removed, -1 otherwise.
[[nodiscard]] int32_t RemoveDirHierarchy(const std::string& path);

}  // namespace kx::platform
