#pragma once
// A component as the repository resolves it: each dependency bound to the
// component that satisfies it, and the reverse links.

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "catalogue/component_base.h"
#include "catalogue/dependency.h"

namespace kx::catalogue {

class SoftwareComponent : public ComponentBase {
 public:
  // The dependency is owned; the bound component is not (null until bound).
  using Binding = std::pair<std::unique_ptr<BaseDependency>, SoftwareComponent*>;

  SoftwareComponent() = default;
  // Copies clone every dependency; bound components and links are shared references.
  SoftwareComponent(const SoftwareComponent& other);
  SoftwareComponent& operator=(const SoftwareComponent& other);
  SoftwareComponent(SoftwareComponent&&) = default;
  SoftwareComponent& operator=(SoftwareComponent&&) = default;
  ~SoftwareComponent() override;

  // Appends an unbound binding and the dependency's name.
  void AddDependency(std::unique_ptr<BaseDependency> dependency);

  std::vector<Binding> dependencyBindings;
  std::vector<SoftwareComponent*> dependents;  // components bound to this one
  std::vector<SoftwareComponent*> links;
  std::vector<std::string> dependencyNames;
};

// Binds every dependency of `component` named `name` to `target` and lists
// `component` among target's dependents once per binding. Whether any matched.
bool BindDependency(SoftwareComponent& component, std::string_view name, SoftwareComponent& target);

// Whether `goal` is reachable from `component` through `dependents` links.
// Terminates on cycles.
bool DependsOn(const SoftwareComponent& component, const SoftwareComponent& goal);

}  // namespace kx::catalogue
