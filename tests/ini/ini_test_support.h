#pragma once
// Helpers shared by the INI tests: a scratch directory, whole-file reads and
// writes, and a document rendered to text.

#include <cstdio>
#include <stdexcept>
#include <string>

#include "ini/ini_document.h"
#include "tests/support/scratch_root.h"

namespace kx::ini::test {

using kx::test::ReadFile;
using kx::test::WriteFile;
using ScratchDir = kx::test::ScratchRoot;

// The text WriteToStream produces for `document` (which must not be in safe-save mode).
inline std::string Render(Document& document) {
  std::FILE* stream = std::tmpfile();
  if (stream == nullptr) throw std::runtime_error("tmpfile failed");
  const int result = document.WriteToStream(stream, 0);
  std::string text(static_cast<size_t>(std::ftell(stream)), '\0');
  std::rewind(stream);
  text.resize(std::fread(text.data(), 1, text.size(), stream));
  std::fclose(stream);
  return result < 0 ? "error " + std::to_string(result) : text;
}

}  // namespace kx::ini::test
