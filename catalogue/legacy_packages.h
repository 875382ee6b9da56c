#pragma once
// Three packages of older controllers that no catalogue file describes: built-in
// CDF texts, added to a repository when their payload directory holds the marker
// file.

#include <string>

namespace kx::catalogue {

class Repository;

struct LegacyPackage {
  const char* payloadDirectory;  // below the catalogue directory
  const char* markerFile;        // in the payload directory
  const char* text;              // CDF text; "[[DIR]]" stands for the payload directory
};

constexpr int kLegacyPackageCount = 3;
extern const LegacyPackage kLegacyPackages[kLegacyPackageCount];

// `text` with every "[[DIR]]" replaced by `directory`.
std::string ReplaceDirectoryPlaceholder(std::string text, const std::string& directory);

// Loads the package's text into the repository when its marker exists, giving the
// payload directory as the package directory and no file path. 1 when a package
// was added, 0 when not.
int AddLegacyPackage(Repository& repository, const LegacyPackage& package);

// Every legacy package, in table order.
void AddLegacyPackages(Repository& repository);

}  // namespace kx::catalogue
