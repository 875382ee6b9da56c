#pragma once
// A software stack (STACK): a named, versioned set of member components and
// optional add-ons grouped by ADDONGROUP.

#include <cstdint>
#include <string>
#include <vector>

#include "catalogue/stack_item.h"
#include "catalogue/target_support.h"

namespace kx::catalogue {

enum class StackType : int32_t { kGold = 0, kPredefined = 1, kUserDefined = 2 };

// ADDONGROUP: NAME and OLDESTCOMPATIBLEVERSION ("0" when absent).
struct AddonGroup {
  std::string name;
  std::string oldestCompatibleVersion;
};

class SoftwareSet : public TargetSupport {
 public:
  SoftwareSet() = default;
  SoftwareSet(const SoftwareSet&) = default;
  SoftwareSet(SoftwareSet&&) = default;
  SoftwareSet& operator=(const SoftwareSet&) = default;
  SoftwareSet& operator=(SoftwareSet&&) = default;
  ~SoftwareSet() override;

  std::string name;
  std::string versionText;
  std::string title;
  std::string abstract;
  std::vector<StackItem> items;
  std::string intent;
  std::vector<AddonGroup> addonGroups;
  std::string group;       // GROUP attribute
  std::string sourcePath;  // directory of the CDF it came from; set by whoever loads files
  StackType type = StackType::kGold;
  bool packageSystem = false;  // OPKGSYSTEM="YES"
};

}  // namespace kx::catalogue
