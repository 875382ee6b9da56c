#pragma once
// What every catalogue component has: identity, versions, visibility and features.

#include <cstdint>
#include <string>
#include <vector>

#include "catalogue/stack_item.h"
#include "catalogue/target_support.h"
#include "catalogue/version.h"

namespace kx::catalogue {

// Stored as these numbers; 3 is deliberately not used.
enum class ComponentType : int32_t { kVisible = 0, kHidden = 1, kSystem = 2, kStartup = 4 };

enum class FeatureSelection : int32_t {
  kSelected = 0,                  // SELECT absent or any other word
  kNotSelected = 1,               // "NO"
  kTarget = 2,                    // "TARGET", kept and written back as read
  kSelectedWithDependencies = 3,  // "YESDEPS"
};

struct Feature {
  ComponentReference component;
  FeatureSelection selection = FeatureSelection::kSelected;
};

class ComponentBase : public TargetSupport {
 public:
  ComponentBase() = default;
  ComponentBase(const ComponentBase&) = default;
  ComponentBase(ComponentBase&&) = default;
  ComponentBase& operator=(const ComponentBase&) = default;
  ComponentBase& operator=(ComponentBase&&) = default;
  ~ComponentBase() override;

  ComponentType type = ComponentType::kVisible;
  ComponentType effectiveType = ComponentType::kVisible;  // written instead of `type` on request
  bool hideVersion = false;
  std::vector<Feature> features;
  std::string name;
  Version version;
  std::string title;
  std::string abstract;
  Version oldestCompatibleVersion;  // absent when its text is empty
  Version compatibilityVersion;     // absent when its text is empty
  std::vector<StackDependency> stackItems;
};

}  // namespace kx::catalogue
