#pragma once
// Reading the SOFTPKG elements of a CDF document.

#include "catalogue/cdf_reader.h"
#include "catalogue/element_scanner.h"

namespace kx::catalogue::cdf {

// One SOFTPKG element. Null for one without NAME or VERSION, or with a TYPE word
// that is not a visibility type.
std::unique_ptr<Package> ReadPackage(const ElementScanner& scanner, const Element& element,
                                     DynamicAddonList& dynamicAddons);

}  // namespace kx::catalogue::cdf
