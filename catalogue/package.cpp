#include "catalogue/package.h"

#include <algorithm>

#include "catalogue/status.h"

namespace kx::catalogue {

DependencyList CloneDependencies(const DependencyList& list) {
  DependencyList copy;
  copy.reserve(list.size());
  for (const auto& dependency : list) copy.push_back(dependency->Clone());
  return copy;
}

Package::Package(const Package& other)
    : ComponentBase(other),
      originText(other.originText),
      sourcePath(other.sourcePath),
      dependencies(CloneDependencies(other.dependencies)),
      extraDependencies(CloneDependencies(other.extraDependencies)),
      stack(other.stack ? std::make_unique<SoftwareSet>(*other.stack) : nullptr),
      codebases(other.codebases),
      symlinks(other.symlinks),
      mergeIni(other.mergeIni),
      extraText(other.extraText),
      providesOs(other.providesOs),
      cdfFile(other.cdfFile) {}

Package& Package::operator=(const Package& other) {
  if (this != &other) *this = Package(other);
  return *this;
}

Package::~Package() = default;

const BaseDependency* FindDependency(const Package& package, std::string_view name) {
  for (const auto& dependency : package.dependencies) {
    if (NamesEqual(dependency->name, name)) return dependency.get();
  }
  return nullptr;
}

std::string CdfFormatVersion(const Package& package) {
  return package.stack || package.type == ComponentType::kStartup ? "5.0" : "1.5";
}

std::string BuildUrl(const Package& package, std::string_view urlBase, std::string_view rootPath) {
  std::string url(urlBase);
  url += std::string_view(package.sourcePath).substr(std::min(rootPath.size(), package.sourcePath.size()));
  std::replace(url.begin(), url.end(), '\\', '/');
  return url;
}

int CheckStack(Package& package, const SoftwareSet* givenSet) {
  if (givenSet == nullptr || !package.stack) return status::kInvalidInput;
  const SoftwareSet& own = *package.stack;
  if (!NamesEqual(givenSet->name, own.name) || givenSet->versionText != own.versionText) {
    return status::kInvalidInput;
  }
  auto exactOn = [](const StackItem& item) {
    return std::make_unique<ExactVersionDependency>(item.component.name, item.component.version, item.component.title);
  };
  package.dependencies.clear();
  for (const StackItem& item : givenSet->items) {
    if (item.kind == StackItemKind::kMember) package.dependencies.push_back(exactOn(item));
  }
  // Both lists are short (a stack's add-ons), so the pairwise look-up is fine.
  size_t addonsMatched = 0;
  for (const StackItem& chosen : own.items) {
    for (const StackItem& offered : givenSet->items) {
      if (offered.kind == StackItemKind::kAddon && NamesEqual(chosen.component.name, offered.component.name) &&
          VersionPartsEqual(chosen.component.version, offered.component.version)) {
        package.dependencies.push_back(exactOn(offered));
        ++addonsMatched;
      }
    }
  }
  return addonsMatched == own.items.size() ? status::kOk : status::kStackMismatch;
}

void NormalizeTargetPath(std::string& path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  if (path.size() >= 2 && (path[0] == 'c' || path[0] == 'C') && path[1] == ':') path.erase(0, 2);
  if (path.empty() || path[0] != '/') path.insert(0, 1, '/');
}

}  // namespace kx::catalogue
