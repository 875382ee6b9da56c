#pragma once
// Writing one package as a SOFTPKG element, in the layout the CDF reader reads
// back into an equal package.

#include <string>

#include "catalogue/package.h"

namespace kx::catalogue::cdf {

struct PackageWriteOptions {
  // With a URL base, each package gets a URL attribute built by BuildUrl from
  // these two; without one, no URL is written.
  std::string urlBase;
  std::string rootPath;
  // Write `effectiveType` as TYPE instead of `type`.
  bool writeEffectiveType = false;
};

// "VISIBLE", "HIDDEN", "SYSTEM" or "STARTUP"; a number without a word (3) is VISIBLE.
const char* VisibilityName(ComponentType type);

void WritePackage(std::string& out, const Package& package, const PackageWriteOptions& options);

}  // namespace kx::catalogue::cdf
