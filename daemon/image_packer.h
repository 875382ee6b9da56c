#pragma once
// Packs the system root into a system image: a gzip-compressed tar (GNU
// format) written as a stream, so memory use does not grow with the tree.
//
// Entries are directories, regular files and symbolic links with their mode,
// numeric owner and group and modification time (whole seconds), named
// relative to the root ("etc/x"), parents before their contents (root_walk.h).
// A file with several hard links is packed whole under each name. Pipes,
// sockets and devices are left out and reported.

#include <cstdint>
#include <functional>

#include "daemon/image_scope.h"

namespace kx::daemon {

struct PackProgress {
  uint64_t bytesDone = 0;
  uint64_t bytesTotal = 0;  // the sizes of the regular files to pack
};

// Writes the image to `fd`. `onProgress` is called as file content is packed,
// and may throw to stop. Throws std::runtime_error when an entry cannot be
// read or the image cannot be written.
void PackImage(int fd, const ImageScope& scope, const std::function<void(const PackProgress&)>& onProgress);

}  // namespace kx::daemon
