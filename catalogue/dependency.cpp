#include "catalogue/dependency.h"

#include "catalogue/component_base.h"

namespace kx::catalogue {
namespace {

// The compatibility version here is an upper alternative to the version, and its
// presence is not tested: an absent one has empty parts.
bool ReachesMinimum(const Version& requested, const ComponentBase& candidate) {
  return VersionAtLeast(candidate.version, requested) || VersionAtLeast(candidate.compatibilityVersion, requested);
}

bool NotBelowOldestCompatible(const Version& requested, const ComponentBase& candidate) {
  return candidate.oldestCompatibleVersion.text.empty() || VersionAtLeast(requested, candidate.oldestCompatibleVersion);
}

}  // namespace

BaseDependency::BaseDependency(std::string name, Version version, std::string title, bool isSoft, bool requestFlag)
    : name(std::move(name)),
      version(std::move(version)),
      title(std::move(title)),
      isSoft(isSoft),
      requestFlag(requestFlag) {}

BaseDependency::~BaseDependency() = default;

bool StrictDependency::IsSatisfiedBy(const ComponentBase& candidate) const {
  if (!NamesEqual(name, candidate.name)) return false;
  if (VersionPartsEqual(version, candidate.version)) return true;
  // Here the compatibility version is the lower end of a range ending at the version.
  return !candidate.compatibilityVersion.text.empty() && VersionAtLeast(version, candidate.compatibilityVersion) &&
         VersionAtLeast(candidate.version, version) && NotBelowOldestCompatible(version, candidate);
}

std::unique_ptr<BaseDependency> StrictDependency::Clone() const { return std::make_unique<StrictDependency>(*this); }

bool ExactVersionDependency::IsSatisfiedBy(const ComponentBase& candidate) const {
  return NamesEqual(name, candidate.name) && VersionPartsEqual(version, candidate.version);
}

std::unique_ptr<BaseDependency> ExactVersionDependency::Clone() const {
  return std::make_unique<ExactVersionDependency>(*this);
}

bool MinimumDependency::IsSatisfiedBy(const ComponentBase& candidate) const {
  return NamesEqual(name, candidate.name) && ReachesMinimum(version, candidate);
}

std::unique_ptr<BaseDependency> MinimumDependency::Clone() const { return std::make_unique<MinimumDependency>(*this); }

bool LooseDependency::IsSatisfiedBy(const ComponentBase& candidate) const {
  return NamesEqual(name, candidate.name) && ReachesMinimum(version, candidate) &&
         NotBelowOldestCompatible(version, candidate);
}

std::unique_ptr<BaseDependency> LooseDependency::Clone() const { return std::make_unique<LooseDependency>(*this); }

}  // namespace kx::catalogue
