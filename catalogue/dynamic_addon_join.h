#pragma once
// Joining a package that declared itself an add-on of a stack (ISADDONOFSTACK)
// to that stack.

#include "catalogue/cdf_reader.h"
#include "catalogue/software_set.h"

namespace kx::catalogue {

// When the stack is the one the add-on names (its NAME equals the KEY) and holds
// no add-on of that name and version yet, adds it as an add-on of its GROUP
// (created, with oldest compatible version "0", when the stack lacks it).
// Returns whether the stack changed.
bool JoinDynamicAddon(SoftwareSet& stack, const DynamicAddon& addon);

}  // namespace kx::catalogue
