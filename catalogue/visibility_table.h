#pragma once
// The per-name visibility of a catalogue: the TYPE of the first-loaded package
// of each name, except that a name is hidden only when none of its packages is
// visible.

#include <map>
#include <string>
#include <string_view>

#include "catalogue/cdf_reader.h"

namespace kx::catalogue {

// Orders names as NamesEqual compares them: ASCII letters folded to upper case.
// Transparent, so that a table can be searched with a string_view.
struct NameLess {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const;
};

using VisibilityTable = std::map<std::string, ComponentType, NameLess>;

// Adds an entry for every name of `packages` that the table lacks; names already
// present keep the entry they were first given.
void ExtendVisibilityTable(VisibilityTable& table, const PackageList& packages);

}  // namespace kx::catalogue
