#pragma once
// Writing packages as a CDF document file.

#include <string>
#include <vector>

#include "catalogue/cdf_package_writer.h"
#include "catalogue/package.h"

namespace kx::catalogue {

// The CDF VERSION of a document holding these packages: the highest
// CdfFormatVersion among them ("5.0" or "1.5"), and "1.5" for none. Both are
// below 8.0, so the reader accepts every document written here.
std::string CdfDocumentVersion(const std::vector<const Package*>& packages);

// Writes the packages as one document at `path`, creating missing directories.
// Every CODEBASE file must exist (FILENAME joined to the package's sourcePath;
// an absolute FILENAME as it is): when one is missing nothing is created.
// Returns 0, or -8 for a missing file, a file that cannot be opened, a short
// write or a failed close.
[[nodiscard]] int WriteCdfDocument(const std::string& path, const std::vector<const Package*>& packages,
                                   const cdf::PackageWriteOptions& options = {});

}  // namespace kx::catalogue
