#include "catalogue/dynamic_addon_join.h"

#include <algorithm>

namespace kx::catalogue {
namespace {

size_t GroupIndex(SoftwareSet& stack, const std::string& group) {
  for (size_t i = 0; i < stack.addonGroups.size(); ++i) {
    if (stack.addonGroups[i].name == group) return i;
  }
  stack.addonGroups.push_back({group, "0"});
  return stack.addonGroups.size() - 1;
}

}  // namespace

bool JoinDynamicAddon(SoftwareSet& stack, const DynamicAddon& addon) {
  if (!addon.addon || !NamesEqual(stack.name, addon.stackKey)) return false;
  const ComponentReference& component = *addon.addon;
  const bool present = std::any_of(stack.items.begin(), stack.items.end(), [&](const StackItem& item) {
    return item.kind == StackItemKind::kAddon && NamesEqual(item.component.name, component.name) &&
           VersionPartsEqual(item.component.version, component.version);
  });
  if (present) return false;
  StackItem item;
  item.component = component;
  item.kind = StackItemKind::kAddon;
  item.addonGroup = GroupIndex(stack, addon.group);
  item.selected = addon.selected;
  item.hidden = addon.hidden;
  stack.items.push_back(std::move(item));
  return true;
}

}  // namespace kx::catalogue
