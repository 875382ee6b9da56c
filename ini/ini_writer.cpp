#include "ini/ini_writer.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "ini/ini_syntax.h"

namespace kx::ini {
namespace {

void WriteLines(const std::vector<std::string>& lines, std::FILE* stream) {
  for (const std::string& line : lines) std::fprintf(stream, "%s\n", line.c_str());
}

// Length of the next piece of `rest` that fits in `room`: up to and including
// the last break character within the room, else the whole room.
size_t ChunkLength(std::string_view rest, size_t room, char breakChar) {
  if (rest.size() <= room) return rest.size();
  if (breakChar != 0) {
    size_t lastBreak = rest.substr(0, room).rfind(breakChar);
    if (lastBreak != std::string_view::npos) return lastBreak + 1;
  }
  return room;
}

int WriteKey(const Key& key, const Document& document, const char* separator, std::FILE* stream) {
  const char* name = key.name.c_str();
  const char* value = key.value.c_str();
  const long long quotes = key.quote != 0 ? 2 : 0;
  const long long lineLength =
      static_cast<long long>(key.name.size() + std::strlen(separator) + key.value.size()) + quotes;
  const int32_t maxLength = document.MaxLineLength();
  if (maxLength == -1 || lineLength <= maxLength) {
    if (key.quote != 0) {
      std::fprintf(stream, "%s%s%c%s%c\n", name, separator, key.quote, value, key.quote);
    } else {
      std::fprintf(stream, "%s%s%s\n", name, separator, value);
    }
    return kOk;
  }
  // 12 = " Line" + four digits + the widest separator.
  const long long room = static_cast<long long>(maxLength) - 12 - static_cast<long long>(key.name.size()) - quotes;
  if (room <= 0) return kErrorLineTooShort;
  std::string_view rest = key.value;
  int number = 1;
  do {  // an empty value still gets its one line
    const size_t length = ChunkLength(rest, static_cast<size_t>(room), document.BreakChar());
    const int printable = static_cast<int>(length);
    if (key.quote != 0) {
      std::fprintf(stream, "%s%s%04d%s%c%.*s%c\n", name, kContinuationMarker.data(), number, separator, key.quote,
                   printable, rest.data(), key.quote);
    } else {
      std::fprintf(stream, "%s%s%04d%s%.*s\n", name, kContinuationMarker.data(), number, separator, printable,
                   rest.data());
    }
    rest.remove_prefix(length);
    ++number;
  } while (!rest.empty());
  return kOk;
}

}  // namespace

int WriteDocument(const Document& document, std::FILE* stream) {
  const uint32_t options = document.Options();
  const bool withComments = (options & kOptionComments) != 0;
  const char* separator = (options & kOptionSpacedSeparator) != 0 ? " = " : "=";
  if ((options & kOptionByteOrderMark) != 0) std::fputs("\xEF\xBB\xBF", stream);
  bool firstSection = true;
  for (const Section& section : document.Sections()) {
    if (withComments && !firstSection) std::fputc('\n', stream);
    firstSection = false;
    if (!section.name.empty()) {
      if (withComments) WriteLines(section.comments, stream);
      std::fprintf(stream, "[%s]\n", section.name.c_str());
    }
    for (const Key& key : section.keys) {
      if (withComments) WriteLines(key.comments, stream);
      int result = WriteKey(key, document, separator, stream);
      if (result < 0) return result;
    }
  }
  if (withComments) WriteLines(document.TrailingComments(), stream);
  if (std::fflush(stream) != 0 || std::ferror(stream) != 0) return kErrorWriteFailed;
  return kOk;
}

int WriteText(const Document& document, std::string& text) {
  char* buffer = nullptr;
  size_t size = 0;
  std::FILE* stream = ::open_memstream(&buffer, &size);
  if (stream == nullptr) return kErrorNoMemory;
  const int result = WriteDocument(document, stream);
  std::fclose(stream);  // sets buffer and size
  const std::unique_ptr<char, void (*)(void*)> owned(buffer, std::free);
  if (result >= 0) text.assign(buffer, size);
  return result;
}

}  // namespace kx::ini
