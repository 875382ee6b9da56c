// The names the in-memory document refuses, and how its values are written and read back.

#include <gtest/gtest.h>

#include "ini/ini_document.h"
#include "ini/ini_parser.h"
#include "ini_test_support.h"

namespace kx::ini {
namespace {

using namespace std::string_literals;

TEST(IniDocumentTest, NamesAFileCouldNotCarryAreRefused) {
  Document document;
  for (const char* name : {"", "a=b", "[x", ";c", "#c", " k", "k ", "k Line0001", "k Line12345", "a\nb"}) {
    EXPECT_EQ(document.SetText("s", name, "v"), kErrorInvalid) << name;
  }
  for (int result : {document.SetText("a]b", "k", "v"), document.SetText("s", "k", "v", '*'),
                     document.AddComment("s", "k", "no comment character"), document.AddComment("s", "k", "; a\nb"),
                     document.AddComment("", "", "; the unnamed section has no header")}) {
    EXPECT_EQ(result, kErrorInvalid);
  }
  EXPECT_TRUE(document.Sections().empty());
}

// Values are written as given: line ends go out as line ends, quotes only when
// asked for, and a NUL ends the text. Values without line ends read back whole.
TEST(IniDocumentTest, ValuesAreWrittenAsGiven) {
  const std::pair<std::string, std::string> written[] = {
      {"a\nb", "[Req]\nPath=a\nb\n"},
      {"a\rb", "[Req]\nPath=a\rb\n"},
      {"\"x\"", "[Req]\nPath=\"x\"\n"},
      {"a\0b"s, "[Req]\nPath=a\n"},
  };
  for (const auto& [value, text] : written) {
    Document document;
    ASSERT_EQ(document.SetText("Req", "Path", value), kOk);
    EXPECT_EQ(test::Render(document), text);
  }
  for (const char* value :
       {"[evil]", "x=1", "; not a comment", "'", "k Line0002=x", "  padded  ", "\xEF\xBB\xBF\x01\xFF"}) {
    Document document;
    ASSERT_EQ(document.SetText("Req", "Path", value), kOk);
    for (int32_t maxLength : {-1, 20}) {
      document.SetWriteSettings(maxLength, 0, kOptionSpacedSeparator);
      Document read;
      ASSERT_EQ(ParseText(test::Render(document), read), kOk);
      ASSERT_EQ(read.Sections().size(), 1u) << value;
      ASSERT_EQ(read.Sections()[0].keys.size(), 1u) << value;
      EXPECT_EQ(read.Sections()[0].keys[0].value, value);
    }
  }
}

// A value holding line ends spills onto lines of their own; whatever they
// look like, they never replace a key written before them.
TEST(IniDocumentTest, SpilledLinesNeverReplaceEarlierKeys) {
  Document written;
  ASSERT_EQ(written.SetInt32("PostAction", "Retval", 0), kOk);
  ASSERT_EQ(written.SetText("PostAction", "Action", "None\nRetval=5\r\n[PostAction]\nRetval Line0001=6\nAction=Reboot"),
            kOk);
  Document read;
  ASSERT_EQ(ParseText(test::Render(written), read), kOk);
  std::string retval, action;
  EXPECT_TRUE(read.GetText("PostAction", "Retval", retval));
  EXPECT_TRUE(read.GetText("PostAction", "Action", action));
  EXPECT_EQ(retval, "0");
  EXPECT_EQ(action, "None");
}

}  // namespace
}  // namespace kx::ini
