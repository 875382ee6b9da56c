// The names the in-memory document refuses, and how its values are written and read back.

#include <gtest/gtest.h>

#include "ini/ini_document.h"
#include "ini/ini_parser.h"
#include "ini_test_support.h"

namespace kx::ini {
namespace {

using namespace std::string_literals;

TEST(IniDocumentTest, WhatAFileCouldNotCarryIsRefused) {
  Document document;
  for (const char* name :
       {"", "a=b", "[x", ";c", "#c", " k", "k ", "k Line0001", "k Line12345", "a\nb", "a\rb", "\xEF\xBB\xBFk"}) {
    EXPECT_EQ(document.SetText("s", name, "v"), kErrorInvalid) << name;
    EXPECT_EQ(document.SetText("", name, "v"), kErrorInvalid) << name;
  }
  // Line ends would end the line; quotes at both ends of a plain value would be read as quoting.
  const std::pair<const char*, char> values[] = {{"a\nb", '"'}, {"a\rb", '"'}, {"a\r", 0}, {"\"x\"", 0}, {"'x'", 0}};
  for (const auto& [value, quote] : values) {
    EXPECT_EQ(document.SetText("s", "k", value, quote), kErrorInvalid) << value;
  }
  for (const char* comment : {"no comment character", "; a\nb", "; a\r", " ", " ; indented"}) {
    EXPECT_EQ(document.AddComment("s", "k", comment), kErrorInvalid) << comment;
  }
  for (int result : {document.SetText("a]b", "k", "v"), document.SetText("s", "k", "v", '*'),
                     document.AddComment("", "", "; the unnamed section has no header")}) {
    EXPECT_EQ(result, kErrorInvalid);
  }
  EXPECT_TRUE(document.Sections().empty());
}

// Values that look like other lines, quotes and marks inside them, all read back
// as set, whole or split; a NUL ends the text, as in C.
TEST(IniDocumentTest, ValuesReadBackAsSet) {
  const auto readsBack = [](const char* value, char quote) {
    Document document;
    ASSERT_EQ(document.SetText("Req", "Path", value, quote), kOk) << value;
    // "Path = " leaves a piece of a split line 1 to 4 characters.
    const int32_t quotes = quote != 0 ? 2 : 0;
    for (int32_t maxLength : {-1, 17 + quotes, 18 + quotes, 19 + quotes, 20 + quotes}) {
      document.SetWriteSettings(maxLength, 0, kOptionSpacedSeparator);
      Document read;
      ASSERT_EQ(ParseText(test::Render(document), read), kOk);
      const Key* key = read.FindKey("Req", "Path");
      ASSERT_NE(key, nullptr) << value;
      EXPECT_EQ(key->value, value) << maxLength;
      EXPECT_EQ(key->quote, quote) << value;
    }
  };
  for (const char* value : {"[evil]", "x=1", "; not a comment", "'", "k Line0002=x", "  padded  ", "\"x' and more text",
                            "\"a\"b and more text", "text ending in a quote\"", "\xEF\xBB\xBF\x01\xFF"}) {
    readsBack(value, 0);
  }
  for (const char* value : {"\"x\"", "'a'b' and 'more' text'", ""}) readsBack(value, '\'');
  Document document;
  ASSERT_EQ(document.SetText("Req", "Path", "a\0b"s), kOk);
  EXPECT_EQ(test::Render(document), "[Req]\nPath=a\n");
}

}  // namespace
}  // namespace kx::ini
