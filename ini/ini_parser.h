#pragma once
// Reads INI text into a document.

#include <string_view>

#include "ini/ini_document.h"

namespace kx::ini {

// Adds the sections and keys of `text` to `document`. Accepts everything
// WriteDocument produces; the rules for other input are listed in ini_parser.cpp.
// Returns kOk or kErrorNoMemory.
int ParseText(std::string_view text, Document& document);

}  // namespace kx::ini
