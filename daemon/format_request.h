#pragma once
// "format.ini" ([Format] Options, Timeout): empties the user file system,
// "/mnt/userfs" below the system root, except the action exchange directory
// and the web host's uploads that lie in it in safe mode. Nothing is saved
// first: emptying is what was asked for. Links in it are removed, never
// followed; a "/mnt/userfs" that is itself a link is refused.

#include <cstdint>
#include <string>

#include "daemon/progress_reporter.h"

namespace kx::daemon {

// Result code for "lastAction.xml": 0; 0x80004005 when the system root is "/"
// and the settings do not allow a format there (nothing removed), or when
// something could not be removed.
int32_t RunFormat(const std::string& actionDirectory, ProgressReporter& progress);

}  // namespace kx::daemon
