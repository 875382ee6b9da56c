#pragma once
// The system image requests of the current action directory:
//   getimage.ini [GetImage] ImagePath, BlackListPath, Options
//       packs the system root (image_scope.h says what of it) into the image
//       at ImagePath, written beside it first and renamed into place when
//       complete, so that the file is there only whole
//   setimage.ini [SetImage] LocalPath, BlackListPath, Options, Timeout
//       checks the image at LocalPath whole, then restores it in one
//       transaction with the software update's roll-back
// Both paths must lie in the action exchange directory (exchange_request_path.h).
// Options and Timeout are only reported: the daemon gives no option bit a
// meaning, and a restore that is stopped halfway is rolled back anyway.

#include <cstdint>
#include <string>

#include "daemon/progress_reporter.h"

namespace kx::daemon {

// Result codes for "lastAction.xml": 0; 0x80070057 for an unusable request
// file; 0x80004005 when the image could not be made.
int32_t RunGetSystemImage(const std::string& actionDirectory, ProgressReporter& progress);

// 0; 0x80070057 for an unusable request file; 0x800407CD for an image that is
// damaged or refused, with nothing changed; 0x80004005 when the root is "/"
// and the settings do not allow a restore there (nothing changed), or when the
// restore failed and was rolled back.
int32_t RunSetSystemImage(const std::string& actionDirectory, ProgressReporter& progress);

}  // namespace kx::daemon
