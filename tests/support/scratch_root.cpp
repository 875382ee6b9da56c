#include "tests/support/scratch_root.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace kx::test {

ScratchRoot::ScratchRoot() {
  const char* tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp != nullptr && *tmp ? tmp : "/tmp") + "/kx-root-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
  if (const char* previous = std::getenv("KX_SYSTEM_ROOT")) {
    hadPreviousRoot_ = true;
    previousRoot_ = previous;
  }
  ::setenv("KX_SYSTEM_ROOT", path_.c_str(), 1);
  ::unsetenv("KXTALTMPSHAREDFILEDIR");
}

ScratchRoot::~ScratchRoot() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
  if (hadPreviousRoot_) {
    ::setenv("KX_SYSTEM_ROOT", previousRoot_.c_str(), 1);
  } else {
    ::unsetenv("KX_SYSTEM_ROOT");
  }
}

std::string ScratchRoot::operator/(const std::string& targetPath) const {
  return path_ + (targetPath.empty() || targetPath.front() != '/' ? "/" : "") + targetPath;
}

void ScratchRoot::WriteFile(const std::string& targetPath, const std::string& content) const {
  kx::test::WriteFile(*this / targetPath, content);
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void WriteFile(const std::string& path, const std::string& content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

}  // namespace kx::test
