#pragma once
// Reading the SOFTPKG elements of a CDF document.

#include "catalogue/cdf_reader.h"
#include "catalogue/element_scanner.h"

namespace kx::catalogue::cdf {

// Every SOFTPKG of the text in document order. One without NAME or VERSION, or
// with a TYPE word that is not a visibility type, is skipped.
void ReadPackages(const ElementScanner& scanner, PackageList& packages, DynamicAddonList& dynamicAddons);

}  // namespace kx::catalogue::cdf
