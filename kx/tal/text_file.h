#pragma once
// Text files: opening with the foundation's error rules, reading line by line,
// writing a text whole.

#include <cstdio>
#include <string>

namespace kx::tal {

// fopen, retried while it fails with EINTR. Any other failure throws PosixError,
// or returns null when throwOnError is false.
FILE* OpenFile(const std::string& path, const char* mode, bool throwOnError = true);

// Yields the lines of a text file without their line end ("\n" or "\r\n"),
// every other byte kept (NUL included).
class TextFileReader {
 public:
  // Throws PosixError when the file cannot be opened.
  explicit TextFileReader(const std::string& path);
  ~TextFileReader();
  TextFileReader(const TextFileReader&) = delete;
  TextFileReader& operator=(const TextFileReader&) = delete;

  // False at the end of the file. A read error throws FileReadFailed.
  bool ReadLine(std::string& line);

 private:
  FILE* file_;
  char* buffer_ = nullptr;  // getline's, grown as lines need
  size_t capacity_ = 0;
};

// Creates or truncates the file and writes the text whole. Throws PosixError
// when the file cannot be opened, FileWriteFailed when a write or the close fails.
void WriteTextFile(const std::string& path, const std::string& text);

// The whole content of a file. Throws PosixError / FileReadFailed.
std::string ReadWholeFile(const std::string& path);

}  // namespace kx::tal
