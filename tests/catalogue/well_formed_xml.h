#pragma once
// Asks a real XML parser (xmllint, from libxml2-utils) whether a file is
// well-formed XML.

#include <cstdlib>
#include <string>

namespace kx::test {

inline bool IsWellFormedXml(const std::string& path) {
  const std::string command = "xmllint --noout '" + path + "'";
  return std::system(command.c_str()) == 0;
}

}  // namespace kx::test
