// The values and names the in-memory document refuses, and what it accepts reading back.

#include <gtest/gtest.h>

#include "ini/ini_document.h"
#include "ini/ini_parser.h"
#include "ini_test_support.h"

namespace kx::ini {
namespace {

using namespace std::string_literals;

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
