// Fuzz target for INI reading and writing. Whatever is read from any bytes must
// be what the setters accept, must read back the same once written (under
// several write settings), and must give the same bytes when written again;
// merging a text into itself must change nothing.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "ini/ini_document.h"
#include "ini/ini_merge.h"
#include "ini/ini_parser.h"
#include "ini/ini_syntax.h"
#include "ini/ini_writer.h"
#include "tests/ini/ini_test_support.h"

namespace {

using namespace kx::ini;

void Require(bool condition) {
  if (!condition) std::abort();
}

struct WriteSettings {
  int32_t maxLength;
  char breakChar;
  uint32_t options;
};

// Whole lines with every option that shapes the text, and split lines of
// several widths, with and without a break character.
constexpr WriteSettings kSettings[] = {
    {-1, 0, kOptionByteOrderMark | kOptionSpacedSeparator | kOptionComments},
    {64, ',', kOptionComments},
    {30, 0, kOptionSpacedSeparator},
    {20, '"', kOptionComments},
};

// Every name, value and comment read is one the setters take.
void RequireSettable(const Document& read) {
  Document rebuilt;
  for (const Section& section : read.Sections()) {
    for (const std::string& comment : section.comments) Require(rebuilt.AddComment(section.name, "", comment) == kOk);
    for (const Key& key : section.keys) {
      Require(rebuilt.SetText(section.name, key.name, key.value, key.quote) == kOk);
      for (const std::string& comment : key.comments)
        Require(rebuilt.AddComment(section.name, key.name, comment) == kOk);
    }
  }
  for (const std::string& comment : read.TrailingComments()) Require(IsValidComment(comment));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  Document first;
  Require(ParseText(text, first) == kOk);
  RequireSettable(first);

  for (const WriteSettings& settings : kSettings) {
    first.SetWriteSettings(settings.maxLength, settings.breakChar, settings.options);
    std::string written;
    const int result = WriteText(first, written);
    if (result == kErrorLineTooShort) continue;  // a name too long for the width
    Require(result == kOk);
    Document second;
    Require(ParseText(written, second) == kOk);
    const bool comments = (settings.options & kOptionComments) != 0;
    Require(kx::ini::test::Dump(first, comments) == kx::ini::test::Dump(second, comments));
    second.SetWriteSettings(settings.maxLength, settings.breakChar, settings.options);
    std::string rewritten;
    Require(WriteText(second, rewritten) == kOk && rewritten == written);
  }

  std::string merged;
  Require(MergeText(text, text, merged) == kOk);
  Document remerged;
  Require(ParseText(merged, remerged) == kOk);
  Require(kx::ini::test::Dump(first, true) == kx::ini::test::Dump(remerged, true));
  return 0;
}
