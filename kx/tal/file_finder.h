#pragma once
#include <string>
#include <vector>

namespace kx::tal {

// The full paths of the entries of a directory whose names match a wildcard
// pattern ("*", "*.cdf"; names starting with "." match too), sorted by name.
// With includeSubdirectories, each subdirectory's matching contents are listed,
// recursively, just before the subdirectory itself, so that removing the
// entries in the listed order empties a tree. Symbolic links are listed, never
// followed. Throws PosixError when the directory cannot be read.
std::vector<std::string> FindFiles(const std::string& directory, const std::string& pattern,
                                   bool includeSubdirectories = false);

}  // namespace kx::tal
