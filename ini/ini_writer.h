#pragma once
// Writes a document as INI text to an open stream.

#include <cstdio>
#include <string>

#include "ini/ini_document.h"

namespace kx::ini {

// Writes the whole document at the stream's position and flushes it.
// Returns kOk, kErrorLineTooShort or kErrorWriteFailed.
int WriteDocument(const Document& document, std::FILE* stream);

// The same, into `text`; kErrorNoMemory when no memory stream can be had.
int WriteText(const Document& document, std::string& text);

}  // namespace kx::ini
