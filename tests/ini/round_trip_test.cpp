// Whatever a document holds, read from a file or set by a caller, reads back
// the same once written.

#include <gtest/gtest.h>

#include "ini/ini_document.h"
#include "ini/ini_parser.h"
#include "ini_test_support.h"

namespace kx::ini {
namespace {

struct TextCase {
  const char* what;
  const char* text;
  int32_t maxLength;
  uint32_t options;
};

// Read, written with the given settings, read again: the same document.
TEST(IniRoundTripTest, ReadDocumentsReadBackTheSame) {
  const TextCase cases[] = {
      {"unnamed key after a second byte-order mark", "\xEF\xBB\xBF\xEF\xBB\xBFk=1\n", -1, 0},
      {"unnamed key after a blank line with a mark", "\n\xEF\xBB\xBFk=1\n", -1, 0},
      {"value left ending in CR", "[s]\nk=a\r\r\n", -1, 0},
      {"CR inside a value that is split", "[s]\nk=a\rbcdefghijklm\n", 15, 0},
      {"comment left ending in CR", "; c\r\r\n[s]\nk=1\n", -1, kOptionComments},
      {"\" Line0001\" twice", "[s]\na Line0001 Line0001=x\n", -1, 0},
      {"blank before \" Line0001\"", "[s]\na  Line0001=x\n", -1, 0},
      {"pieces that look quoted once joined", "[s]\nk Line0001=\"a\nk Line0002=b\"\n", -1, 0},
      {"stray piece after a key split in four", "[s]\nk=abcdefghijklmnop\nk Line0005=x\n", 17, 0},
  };
  for (const TextCase& c : cases) {
    Document read;
    ASSERT_EQ(ParseText(c.text, read), kOk) << c.what;
    read.SetWriteSettings(c.maxLength, 0, c.options);
    Document again;
    ASSERT_EQ(ParseText(test::Render(read), again), kOk) << c.what;
    const bool comments = (c.options & kOptionComments) != 0;
    EXPECT_EQ(test::Dump(read, comments), test::Dump(again, comments)) << c.what;
  }
}

}  // namespace
}  // namespace kx::ini
