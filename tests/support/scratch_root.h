#pragma once
// A scratch directory used as the system root for the duration of a test, and
// whole-file reads and writes.

#include <string>

namespace kx::test {

class ScratchRoot {
 public:
  // Creates a fresh directory under $TMPDIR (or /tmp), sets KX_SYSTEM_ROOT to it
  // and clears KXTALTMPSHAREDFILEDIR.
  ScratchRoot();
  // Removes the tree and restores the previous KX_SYSTEM_ROOT.
  ~ScratchRoot();
  ScratchRoot(const ScratchRoot&) = delete;
  ScratchRoot& operator=(const ScratchRoot&) = delete;

  const std::string& Path() const { return path_; }
  // A target-absolute path below this root.
  std::string operator/(const std::string& targetPath) const;
  // Writes a file below the root, creating missing directories.
  void WriteFile(const std::string& targetPath, const std::string& content) const;

 private:
  std::string path_;
  std::string previousRoot_;
  bool hadPreviousRoot_ = false;
};

// The whole content of a file; empty when it cannot be read.
std::string ReadFile(const std::string& path);
// Writes a file, creating missing directories.
void WriteFile(const std::string& path, const std::string& content);

}  // namespace kx::test
