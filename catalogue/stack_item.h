#pragma once
// Members and add-ons of a software stack, as a STACK lists them and as a
// package's stack dependency (STACKDEP) selects them.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "catalogue/version.h"

namespace kx::catalogue {

// Identity of a component as other entries name it: NAME, VERSION, TITLE.
struct ComponentReference {
  std::string name;
  Version version;
  std::string title;
};

enum class StackItemKind : int32_t {
  kMember = 0,           // STACKITEM: always part of the stack
  kAddon = 1,            // ADDON: optional, chosen by the installing package
  kAddonDependency = 2,  // ADDONDEP: needed by the add-ons of its group
};

struct StackItem {
  static constexpr size_t kNoGroup = std::numeric_limits<size_t>::max();

  ComponentReference component;
  StackItemKind kind = StackItemKind::kMember;
  std::string type;  // TYPE as written
  // Index into SoftwareSet::addonGroups; items refer to their group by position so
  // that a group's name is stored once however many add-ons it has.
  size_t addonGroup = kNoGroup;
  bool selected = false;  // SELECT="YES"
  bool hidden = false;    // HIDE="YES"
};

// A package's DEPENDENCY of TYPE "STACK": the STACKDEP element and its items.
struct StackDependency {
  std::string name;
  std::string versionText;
  std::string title;
  std::vector<StackItem> items;
};

}  // namespace kx::catalogue
