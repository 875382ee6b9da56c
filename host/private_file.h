#pragma once
// Files only their owner may read (keys, password hashes), replaced whole.

#include <string>

namespace kx::webhost {

// Writes `text` as `path` with mode 0600: under a temporary name, flushed to
// disk, then renamed into place, so that a crash leaves the old file or the new
// one. Throws std::runtime_error.
void WritePrivateFile(const std::string& path, const std::string& text);

}  // namespace kx::webhost
