#pragma once
// One SOFTPKG of a CDF: what to install, where, and what it needs.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "catalogue/component_base.h"
#include "catalogue/dependency.h"
#include "catalogue/software_set.h"

namespace kx::catalogue {

enum class CodebaseType : int32_t { kFile = 0, kOptional = 1, kSystem = 2, kTar = 3 };

// CODEBASE: a file to install. For kTar the target is a directory.
struct Codebase {
  std::string fileName;
  std::string target;
  std::string permissions;
  std::string owner;
  std::string group;
  Version version;
  CodebaseType type = CodebaseType::kFile;
};

// SYMLINK: `link` is the path of the link, `source` what it points to.
struct Symlink {
  std::string source;
  std::string link;
  std::string permissions;
  std::string owner;
  std::string group;
};

// MERGEINI: INI text to merge into `target` on the controller.
struct MergeIni {
  std::string target;
  std::string fileName;
  std::string text;
};

using DependencyList = std::vector<std::unique_ptr<BaseDependency>>;

class Package : public ComponentBase {
 public:
  Package() = default;
  // Copies clone every dependency and deep-copy the stack.
  Package(const Package& other);
  Package& operator=(const Package& other);
  Package(Package&&) = default;
  Package& operator=(Package&&) = default;
  ~Package() override;

  std::string originText;       // URL attribute, carried unchanged
  std::string sourcePath;       // directory the package's files are found in
  DependencyList dependencies;  // exact and strict ones first, loose ones after
  DependencyList extraDependencies;
  std::unique_ptr<SoftwareSet> stack;  // the stack this package installs, if any
  std::vector<Codebase> codebases;
  std::vector<Symlink> symlinks;
  std::vector<MergeIni> mergeIni;
  std::string extraText;  // IMPLEMENTATION TARGET attribute, carried unchanged
  bool providesOs = false;
  std::string cdfFile;  // path of the CDF the package was loaded from, when known
};

DependencyList CloneDependencies(const DependencyList& list);

// The first entry of `dependencies` named `name` (NamesEqual), or null.
const BaseDependency* FindDependency(const Package& package, std::string_view name);

// "5.0" for a package that carries a stack or is of type STARTUP, else "1.5".
std::string CdfFormatVersion(const Package& package);

// `urlBase` followed by sourcePath less as many leading characters as `rootPath`
// has, with every backslash turned into "/".
std::string BuildUrl(const Package& package, std::string_view urlBase, std::string_view rootPath);

// Rebuilds the package's dependencies from `givenSet`: every member, then every
// add-on matching an item of the package's own stack (same name and version
// parts). -1 when the set or the package's stack is missing or they differ in
// name or version text; 0 when the add-on matches number exactly the items of
// the package's stack, else -16.
int CheckStack(Package& package, const SoftwareSet* givenSet);

// Backslashes to "/", a leading "c:" (any case) removed, a leading "/" ensured.
void NormalizeTargetPath(std::string& path);

}  // namespace kx::catalogue
