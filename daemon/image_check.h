#pragma once
// The checks of a whole system image that no single entry shows, made before
// anything is written. The image is refused (ImageRefused) when
//   - an entry lies below a symbolic link of the image: a link "etc" to
//     "/etc" followed by "etc/passwd" would write through the link
//   - a relative link climbs above the root, its text read as written
//     ("../../x" in "a/link").
// Absolute link texts are fine: on the controller they start at the root.
// The image is read from start to end, so that damaged data and paths beyond
// the limits are found here too (the entry checks of image_reader.h). Memory
// grows with the image's directories and links, in proportion to their names.

#include <functional>
#include <string>

#include "daemon/image_reader.h"

namespace kx::daemon {

// `onProgress` gets the percentage of the image read so far.
void CheckImage(const ImageFile& image, const std::function<void(int percent)>& onProgress);

// True when `linkText`, a link at `relativePath`, names a place below the root.
bool LinkStaysBelowRoot(const std::string& relativePath, const std::string& linkText);

}  // namespace kx::daemon
