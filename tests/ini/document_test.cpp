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
  ASSERT_EQ(ParseText("[s]\nmin=-2147483648\nhex= 0x1F \nbig=4294967295\nover=2147483648\nword=12abc\nneg=-1\n",
                      document), kOk);
  int32_t i = 7, hex = 0;
  uint32_t u = 7;
  EXPECT_TRUE(document.GetInt32("s", "min", i) && i == INT32_MIN && document.GetInt32("s", "hex", hex) && hex == 31);
  EXPECT_TRUE(document.GetUInt32("s", "big", u) && u == UINT32_MAX);
  i = 7;
  EXPECT_FALSE(document.GetInt32("s", "over", i) || document.GetInt32("s", "word", i) ||
               document.GetUInt32("s", "neg", u) || document.GetInt32("s", "none", i));
  EXPECT_EQ(i, 7);
}

// Request files are filled from network input: a setter either refuses a value
// or it reads back as the same single key, however the lines are cut.
TEST(IniDocumentTest, HostileInputIsRefusedOrReadsBackAsOneKey) {
  Document document;
  for (const std::string& value : {"a\nb"s, "a\rb"s, "\n[evil]\nx=1"s, "a\0b"s}) {
    EXPECT_EQ(document.SetText("s", "k", value), kErrorInvalid) << value;
  }
  for (const char* name : {"", "a=b", "[x", ";c", "#c", " k", "k ", "k Line0001", "k Line12345"}) {
    EXPECT_EQ(document.SetText("s", name, "v"), kErrorInvalid) << name;
  }
  for (int result : {document.SetText("a]b", "k", "v"), document.SetText("s", "k", "v", '*'),
                     document.AddComment("s", "k", "no comment character"), document.AddComment("s", "k", "; a\nb"),
                     document.AddComment("", "", "; the unnamed section has no header")}) {
    EXPECT_EQ(result, kErrorInvalid);
  }
  EXPECT_TRUE(document.Sections().empty());

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
