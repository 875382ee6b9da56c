#include "catalogue/visibility_table.h"

#include <algorithm>
#include <set>

namespace kx::catalogue {
namespace {

char Folded(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

}  // namespace

bool NameLess::operator()(std::string_view a, std::string_view b) const {
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return static_cast<unsigned char>(Folded(x)) < static_cast<unsigned char>(Folded(y));
  });
}

void ExtendVisibilityTable(VisibilityTable& table, const PackageList& packages) {
  // Collected first so that a hidden name needs one look-up, not a scan of the list.
  std::set<std::string, NameLess> visibleNames;
  for (const auto& package : packages) {
    if (package->type == ComponentType::kVisible) visibleNames.insert(package->name);
  }
  for (const auto& package : packages) {
    if (table.count(package->name) != 0) continue;
    ComponentType type = package->type;
    if (type == ComponentType::kHidden && visibleNames.count(package->name) != 0) type = ComponentType::kVisible;
    table.emplace(package->name, type);
  }
}

}  // namespace kx::catalogue
