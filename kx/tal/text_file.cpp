#include "kx/tal/text_file.h"

#include <cerrno>
#include <cstdlib>

#include "kx/tal/exception/exception.h"
#include "kx/tal/exception/os_exception.h"

namespace kx::tal {

FILE* OpenFile(const std::string& path, const char* mode, bool throwOnError) {
  FILE* file;
  do {
    file = std::fopen(path.c_str(), mode);
  } while (file == nullptr && errno == EINTR);
  if (file == nullptr && throwOnError) KX_THROW(osdep::PosixError);
  return file;
}

TextFileReader::TextFileReader(const std::string& path) : file_(OpenFile(path, "re")) {}

TextFileReader::~TextFileReader() {
  std::free(buffer_);
  std::fclose(file_);
}

bool TextFileReader::ReadLine(std::string& line) {
  // getline counts the bytes it read, so a NUL stays part of its line.
  const ssize_t length = ::getline(&buffer_, &capacity_, file_);
  if (length < 0) {
    if (std::ferror(file_)) KX_THROW(exception::FileReadFailed);
    line.clear();
    return false;
  }
  line.assign(buffer_, static_cast<size_t>(length));
  if (!line.empty() && line.back() == '\n') {
    line.pop_back();
    if (!line.empty() && line.back() == '\r') line.pop_back();
  }
  return true;
}

void WriteTextFile(const std::string& path, const std::string& text) {
  FILE* file = OpenFile(path, "we");
  const size_t written = std::fwrite(text.data(), 1, text.size(), file);
  const bool closed = std::fclose(file) == 0;
  if (written != text.size() || !closed) KX_THROW(exception::FileWriteFailed);
}

std::string ReadWholeFile(const std::string& path) {
  FILE* file = OpenFile(path, "re");
  std::string content;
  char buffer[8192];
  size_t count;
  while ((count = std::fread(buffer, 1, sizeof buffer, file)) > 0) content.append(buffer, count);
  const bool failed = std::ferror(file) != 0;
  std::fclose(file);
  if (failed) KX_THROW(exception::FileReadFailed);
  return content;
}

}  // namespace kx::tal
