#include "catalogue/software_component.h"

#include <unordered_set>

namespace kx::catalogue {

SoftwareComponent::SoftwareComponent(const SoftwareComponent& other)
    : ComponentBase(other), dependents(other.dependents), links(other.links), dependencyNames(other.dependencyNames) {
  dependencyBindings.reserve(other.dependencyBindings.size());
  for (const Binding& binding : other.dependencyBindings) {
    dependencyBindings.emplace_back(binding.first->Clone(), binding.second);
  }
}

SoftwareComponent& SoftwareComponent::operator=(const SoftwareComponent& other) {
  if (this != &other) *this = SoftwareComponent(other);
  return *this;
}

SoftwareComponent::~SoftwareComponent() = default;

void SoftwareComponent::AddDependency(std::unique_ptr<BaseDependency> dependency) {
  dependencyNames.push_back(dependency->name);
  dependencyBindings.emplace_back(std::move(dependency), nullptr);
}

bool BindDependency(SoftwareComponent& component, std::string_view name, SoftwareComponent& target) {
  bool bound = false;
  for (SoftwareComponent::Binding& binding : component.dependencyBindings) {
    if (!NamesEqual(binding.first->name, name)) continue;
    binding.second = &target;
    target.dependents.push_back(&component);
    bound = true;
  }
  return bound;
}

bool DependsOn(const SoftwareComponent& component, const SoftwareComponent& goal) {
  // Depth-first with an explicit stack, so that long chains cannot exhaust the
  // call stack; the visited set makes cycles end.
  std::unordered_set<const SoftwareComponent*> visited;
  std::vector<const SoftwareComponent*> pending{&component};
  while (!pending.empty()) {
    const SoftwareComponent* current = pending.back();
    pending.pop_back();
    if (!visited.insert(current).second) continue;
    for (const SoftwareComponent* dependent : current->dependents) {
      if (dependent == &goal) return true;
    }
    pending.insert(pending.end(), current->dependents.rbegin(), current->dependents.rend());
  }
  return false;
}

}  // namespace kx::catalogue
