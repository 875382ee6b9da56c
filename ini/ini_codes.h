#pragma once
// Option bits of an INI document and the negative result codes of the library.
// Results are plain integers: zero or positive is success, negative an error.

#include <cstdint>

namespace kx::ini {

// Document options (a bit set, given when the document is created or through
// Document::SetWriteSettings).
enum Option : uint32_t {
  kOptionByteOrderMark = 1,    // write EF BB BF at the start of the file
  kOptionSafeSave = 2,         // write a temporary file and rename it over the target
  kOptionUniqueTemporary = 4,  // with kOptionSafeSave: mkstemp-made temporary name
  kOptionSpacedSeparator = 8,  // write " = " instead of "=" between key and value
  kOptionComments = 16,        // write comments, and an empty line between sections
  kOptionSync = 32,            // flush and fsync the written file before closing it
};

// The values follow errno numbers where one fits (ENOENT, EINTR, EIO, ...).
enum Result : int {
  kOk = 0,
  kErrorLineTooShort = -2,  // maximum line length cannot hold a continuation line
  kErrorNoFileName = -4,    // no file name recorded
  kErrorNotPossible = -5,   // not possible in safe-save mode, or rewind failed
  kErrorNoMemory = -12,
  kErrorNotWritable = -13,  // target not writable, or rename failed
  kErrorInvalid = -22,      // empty path, missing file, or a value refused
  kErrorWriteFailed = -28,
  kErrorUnreadable = -5001,    // the file exists but cannot be read
  kErrorNoTemporary = -5003,   // the unique temporary file could not be created
  kErrorCannotCreate = -5004,  // the output file could not be opened for writing
};

}  // namespace kx::ini
