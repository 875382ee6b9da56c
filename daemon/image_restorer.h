#pragma once
// Restores a checked system image (image_check.h) over the system root,
// every change inside the given transaction, so that a failure or a crash
// puts back what was there:
//   - entries that the scope excludes are passed over
//   - a directory of the image gets its mode, owner and time; a missing one
//     is made; a file or link in its place is replaced
//   - a file or link of the image replaces what is there; a directory in its
//     way goes with everything in it, which fails when that holds an excluded
//     path
//   - nothing is written through a link: a link (or file) on the way to an
//     entry is replaced by a directory
//   - owners are restored only when the daemon runs as root
//   - what the image does not hold is left as it is.

#include <functional>
#include <string>

#include "daemon/image_reader.h"
#include "daemon/image_scope.h"
#include "daemon/transaction.h"

namespace kx::daemon {

// `onProgress` gets the percentage of the image read so far, and may throw to
// stop. Throws ImageRefused for damaged data, std::runtime_error when a change
// cannot be made; the caller rolls the transaction back.
void RestoreImage(const ImageFile& image, const ImageScope& scope, Transaction& transaction,
                  const std::function<void(int percent)>& onProgress);

}  // namespace kx::daemon
