#pragma once
// Helpers shared by the INI tests: a scratch directory, whole-file reads and
// writes, a document rendered to text, and a document's content for comparing.

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

// Everything a document holds, one field per line (nothing in it holds a line
// feed), comments before what they belong to as in the file; comments only
// when `withComments`, since only then are they written.
inline std::string Dump(const Document& document, bool withComments) {
  std::string out;
  const auto comments = [&](const std::vector<std::string>& lines, const char* mark) {
    if (withComments)
      for (const std::string& line : lines) out += mark + line + "\n";
  };
  for (const Section& section : document.Sections()) {
    comments(section.comments, "C");
    out += "S" + section.name + "\n";
    for (const Key& key : section.keys) {
      comments(key.comments, "C");
      out += "K" + key.name + "\n" + (key.quote != 0 ? key.quote : '-') + key.value + "\n";
    }
  }
  comments(document.TrailingComments(), "T");
  return out;
}

}  // namespace kx::ini::test
