#pragma once
// Writes a document as INI text to an open stream.

#include <cstdio>

#include "ini/ini_document.h"

namespace kx::ini {

// Writes the whole document at the stream's position and flushes it.
// Returns kOk, kErrorLineTooShort or kErrorWriteFailed.
int WriteDocument(const Document& document, std::FILE* stream);

}  // namespace kx::ini
