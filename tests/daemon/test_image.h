#pragma once
// Hand-made system images, hostile ones included.

#include <string>
#include <vector>

namespace kx::test {

// An entry of a hand-made system image: 'f' file (content), 'd' directory,
// 'l' symbolic link (content: its text), 'h' hard link (content: its target),
// 'c' character device.
struct TestImageEntry {
  std::string path;
  char type = 'f';
  std::string content;
};
// Writes a gzip-compressed tar with exactly these entries.
void WriteTestImage(const std::string& path, const std::vector<TestImageEntry>& entries);

}  // namespace kx::test
