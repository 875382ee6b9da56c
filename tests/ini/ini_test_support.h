#pragma once
// Helpers shared by the INI tests: a scratch directory, whole-file reads and
// writes, rendering a document to text, and running code as an unprivileged user.

#include <functional>
#include <string>

#include "ini/ini_document.h"

namespace kx::ini::test {

class ScratchDir {
 public:
  ScratchDir();  // a fresh directory, mode 0755 so that other users can enter it
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);
// The text WriteDocument produces for `document` (which must not be in safe-save mode).
std::string Render(Document& document);
// Runs `body` in a forked child as uid/gid 65534 and returns its result.
int RunAsNobody(const std::function<int()>& body);

}  // namespace kx::ini::test
