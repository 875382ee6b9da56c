#pragma once
// A software update from "install.cdf", all or nothing: plan, check, prepare,
// then change the controller inside one transaction and write the new
// "config.cdf" last. A refusal changes nothing; a failure, or a stop request
// between two steps, rolls everything back.

#include <cstdint>
#include <string>

#include "daemon/progress_reporter.h"

namespace kx::daemon {

// Where TAR codebases are unpacked while an update is prepared.
std::string UpdateScratchDirectory(const std::string& actionDirectory);

// Carries out the update requested in `actionDirectory` and returns the result
// code for "lastAction.xml": 0, 0x800407C9 (refused by a check: an unmet
// dependency, a package that does not suit or cannot be found), 0x80070057 (an
// unusable "install.cdf"), or 0x80004005 (failed and rolled back).
int32_t RunSoftwareUpdate(const std::string& actionDirectory, ProgressReporter& progress);

}  // namespace kx::daemon
