#pragma once
// Walks the tree below the system root as a system image sees it: parents
// before their contents, names in byte order, links not followed, excluded
// paths (image_scope.h) left out with everything below them.

#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include "daemon/image_scope.h"

namespace kx::daemon {

// `visit` gets each entry's path relative to the root and its lstat. Throws
// std::system_error when a directory cannot be read; whatever `visit` throws
// ends the walk.
void WalkRoot(const ImageScope& scope,
              const std::function<void(const std::string& relativePath, const struct stat& info)>& visit);

// The names in a directory but "." and "..", sorted. Throws std::system_error.
std::vector<std::string> DirectoryNames(const std::string& directory);

}  // namespace kx::daemon
