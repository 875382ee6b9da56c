#pragma once
// The enumerations that CDF attributes carry, read from a start tag's attribute
// text.

#include <string_view>

#include "catalogue/component_base.h"
#include "catalogue/package.h"
#include "catalogue/software_set.h"

namespace kx::catalogue {

// SOFTPKG TYPE: VISIBLE 0, HIDDEN 1, SYSTEM 2, STARTUP 4. Without TYPE the value
// is left alone; an unknown word returns false and leaves it alone too.
bool ReadVisibilityType(std::string_view attributes, ComponentType& type);

// STACK TYPE: GOLD 0, PREDEFINED 1, USERDEFINED 2; same failure rule.
bool ReadStackType(std::string_view attributes, StackType& type);

// CODEBASE TYPE: OPTIONAL, SYSTEM, TAR; anything else is a plain file.
CodebaseType ReadCodebaseType(std::string_view attributes);

// FEATURE SELECT: NO, TARGET, YESDEPS; anything else is selected.
FeatureSelection ReadFeatureSelection(std::string_view attributes);

}  // namespace kx::catalogue
