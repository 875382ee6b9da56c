// Setters and getters of the in-memory document, and the values they refuse.

#include <gtest/gtest.h>

#include <climits>

#include "ini/ini_document.h"
#include "ini/ini_parser.h"
#include "ini_test_support.h"

namespace kx::ini {
namespace {

using namespace std::string_literals;

TEST(IniDocumentTest, NumbersAreFoundOnlyWhenTheyFit) {
  Document document;
  ASSERT_EQ(document.SetInt32("s", "min", INT32_MIN), kOk);
  ASSERT_EQ(document.SetUInt32("s", "max", UINT32_MAX), kOk);
  ASSERT_EQ(ParseText("[s]\nhex= 0x1F \nbig=2147483648\nword=12abc\nneg=-1\n", document), kOk);
  int32_t i = 7;
  uint32_t u = 7;
  EXPECT_TRUE(document.GetInt32("s", "min", i) && i == INT32_MIN);
  EXPECT_TRUE(document.GetUInt32("s", "max", u) && u == UINT32_MAX);
  EXPECT_TRUE(document.GetInt32("s", "hex", i) && i == 31);
  EXPECT_TRUE(document.GetUInt32("s", "big", u) && u == 2147483648u);
  i = 7;
  EXPECT_FALSE(document.GetInt32("s", "big", i) || document.GetInt32("s", "word", i) ||
               document.GetUInt32("s", "neg", u) || document.GetInt32("s", "none", i) ||
               document.GetInt32("none", "min", i));
  EXPECT_EQ(i, 7);
}

TEST(IniDocumentTest, UnnamedSectionStaysFirstAndKeysKeepTheirPlace) {
  Document document;
  ASSERT_EQ(document.SetText("named", "k", "v"), kOk);
  ASSERT_EQ(document.SetText("", "top", "v"), kOk);
  ASSERT_EQ(document.SetText("named", "k2", "v"), kOk);
  ASSERT_EQ(document.SetText("named", "k", "again", '\''), kOk);
  EXPECT_EQ(test::Render(document), "top=v\n[named]\nk='again'\nk2=v\n");
}

TEST(IniDocumentTest, RefusesWhatTheFileCouldNotCarry) {
  Document document;
  for (const std::string& value : {"a\nb"s, "a\rb"s, "\n[evil]\nx=1"s, "a\0b"s}) {
    EXPECT_EQ(document.SetText("s", "k", value), kErrorInvalid) << value;
  }
  for (const char* name : {"", "a=b", "[x", ";c", "#c", " k", "k ", "k Line0001", "k Line12345"}) {
    EXPECT_EQ(document.SetText("s", name, "v"), kErrorInvalid) << name;
  }
  EXPECT_EQ(document.SetText("a]b", "k", "v"), kErrorInvalid);
  EXPECT_EQ(document.SetText("s", "k", "v", '*'), kErrorInvalid);
  EXPECT_EQ(document.AddComment("s", "k", "no comment character"), kErrorInvalid);
  EXPECT_EQ(document.AddComment("s", "k", "; two\nlines"), kErrorInvalid);
  EXPECT_EQ(document.AddComment("", "", "; the unnamed section has no header"), kErrorInvalid);
  EXPECT_TRUE(document.Sections().empty());
}

// Request files are filled from network input: whatever a setter accepts must
// read back as the same single key.
TEST(IniDocumentTest, HostileValuesReadBackAsOneKey) {
  for (const char* value : {"[evil]", "x=1", "; not a comment", "\"quoted\"", "'", "k Line0002=x",
                            "  padded  ", "\xEF\xBB\xBF\x01\xFF"}) {
    Document written;
    ASSERT_EQ(written.SetText("Req", "Path", value), kOk);
    for (int32_t maxLength : {-1, 20}) {
      written.SetWriteSettings(maxLength, 0, kOptionSpacedSeparator);
      Document read;
      ASSERT_EQ(ParseText(test::Render(written), read), kOk);
      ASSERT_EQ(read.Sections().size(), 1u) << value;
      ASSERT_EQ(read.Sections()[0].keys.size(), 1u) << value;
      EXPECT_EQ(read.Sections()[0].keys[0].value, value);
    }
  }
}

}  // namespace
}  // namespace kx::ini
