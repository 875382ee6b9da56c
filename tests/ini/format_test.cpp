// The text form: exact writer output, reading malformed input, and save/load
// round trips over every option combination.

#include <gtest/gtest.h>

#include <random>

#include "ini/ini_document.h"
#include "ini/ini_parser.h"
#include "ini_test_support.h"

namespace kx::ini {
namespace {

using namespace std::string_literals;

TEST(IniFormatTest, WritesMarkCommentsSeparatorAndQuotes) {
  Document document(kOptionByteOrderMark | kOptionSpacedSeparator | kOptionComments);
  ASSERT_EQ(document.AddComment("A", "", "; about A"), kOk);
  ASSERT_EQ(document.SetText("A", "k", "old"), kOk);
  ASSERT_EQ(document.SetText("", "top", "1"), kOk);  // the unnamed section is written first
  ASSERT_EQ(document.AddComment("A", "k", "# about k"), kOk);
  ASSERT_EQ(document.SetText("A", "k2", "v"), kOk);
  ASSERT_EQ(document.SetText("A", "k", "x y", '"'), kOk);  // keeps its place before k2
  ASSERT_EQ(document.SetText("B", "e", ""), kOk);
  EXPECT_EQ(test::Render(document),
            "\xEF\xBB\xBFtop = 1\n\n; about A\n[A]\n# about k\nk = \"x y\"\nk2 = v\n\n[B]\ne = \n");
}

TEST(IniFormatTest, SplitsLongValuesIntoNumberedLines) {
  Document document;
  ASSERT_EQ(document.SetText("s", "Name", "abcdefghijklmnopq"), kOk);
  document.SetWriteSettings(22, 0, 0);  // the whole line fits exactly
  EXPECT_EQ(test::Render(document), "[s]\nName=abcdefghijklmnopq\n");
  document.SetWriteSettings(20, 0, 0);  // room: 20 - 12 - 4 = 4
  EXPECT_EQ(test::Render(document),
            "[s]\nName Line0001=abcd\nName Line0002=efgh\nName Line0003=ijkl\n"
            "Name Line0004=mnop\nName Line0005=q\n");
  document.SetWriteSettings(12 + 4, 0, 0);  // no room for a single character
  EXPECT_EQ(test::Render(document), "error -2");

  ASSERT_EQ(document.SetText("s", "Name", "ab,cdef,ghijklmn", '\''), kOk);
  document.SetWriteSettings(22, ',', kOptionSpacedSeparator);  // room: 22 - 12 - 4 - 2 = 4
  EXPECT_EQ(test::Render(document),
            "[s]\nName Line0001 = 'ab,'\nName Line0002 = 'cdef'\nName Line0003 = ','\n"
            "Name Line0004 = 'ghij'\nName Line0005 = 'klmn'\n");
  document.SetWriteSettings(12 + 4 + 2, 0, 0);  // no room left once quoted
  EXPECT_EQ(test::Render(document), "error -2");
}

TEST(IniFormatTest, MalformedAndHugeInputLoadsByTheReadingRulesInLinearTime) {
  const std::string text =
      "\xEF\xBB\xBF"
      "top=1\r\n"
      "\x01\xFF=\x80\n"
      "bad\0key=x\n"
      "no separator\n"
      "=no name\n"
      "; for good\n"
      "  [good] trailing\n"
      "k  =  v\n"
      "k=repeated\n"
      "[broken\n"
      "lost=1\n"
      "[]\n"
      "lost2=1\n"
      "[good]\n"
      "# for k2\n"
      "k2 Line0001=\"a\"\n"
      "k2 Line0003=\"c\"\n"
      "j Line0002='x'\r"
      "j Line0003=y\n"
      "a Line0001 Line0001=x\n"
      "\xEF\xBB\xBF[mark]\n"
      "; kept at the end"s;
  Document document;
  ASSERT_EQ(ParseText(text, document), kOk);
  document.SetWriteSettings(-1, 0, kOptionComments);
  EXPECT_EQ(
      test::Render(document),
      "top=1\n\x01\xFF=\x80\n\n; for good\n[good]\nk= v\n# for k2\nk2=\"a\"\nj='x'y\n\n[mark]\n; kept at the end\n");
  EXPECT_EQ(document.FindKey("good", "k2")->quote, '"');

  const std::string huge(10 * 1024 * 1024, 'v');
  ASSERT_EQ(ParseText("[s]\nbig=" + huge + "\n" + huge + "\n[" + huge + "\nafter=1", document), kOk);
  std::string value;
  EXPECT_TRUE(document.GetText("s", "big", value) && value.size() == huge.size());
  EXPECT_FALSE(document.GetText("s", "after", value));  // under the broken header

  // Quadratic key lookups would take minutes here.
  std::string manyKeys = "[s]\n";
  for (int i = 0; i < 300000; ++i) manyKeys += "k" + std::to_string(i) + "=x\n";
  Document many;
  ASSERT_EQ(ParseText(manyKeys, many), kOk);
  EXPECT_EQ(many.Sections()[0].keys.size(), 300000u);
}

// The bits of text the file format has to take care of: separators, brackets,
// comment and quote characters, line ends, byte-order marks, continuation
// names, blanks.
constexpr const char* kPieces[] = {"a",  "Z", "0", "\xC3\xA9", " ",  "\t",           "=", "[", "]", ";", "#",
                                   "\"", "'", ",", "\r",       "\n", "\xEF\xBB\xBF", "",  ""};
constexpr const char* kNamePieces[] = {" Line0001", " Line0005", " Line"};

// A document made through the setters from random pieces; `accepted` counts
// the keys they took.
Document RandomDocument(std::mt19937& random, int& accepted) {
  auto pick = [&](size_t below) { return static_cast<size_t>(random() % below); };
  auto text = [&](size_t maxPieces) {
    std::string result;
    for (size_t n = pick(maxPieces + 1); n > 0; --n) {
      result += pick(8) == 0 ? kNamePieces[pick(3)] : kPieces[pick(std::size(kPieces))];
    }
    return result;
  };
  Document document;
  const char quotes[] = {0, 0, '"', '\''};
  for (size_t s = pick(2); s < 4; ++s) {
    const std::string section = s == 0 ? "" : text(3);
    if (pick(2) == 0) static_cast<void>(document.AddComment(section, "", (pick(3) == 0 ? "" : ";") + text(4)));
    for (size_t k = 0, keys = 1 + pick(5); k < keys; ++k) {
      const std::string key = (pick(3) == 0 ? "" : "k") + text(3);
      if (document.SetText(section, key, text(pick(4) == 0 ? 80 : 8), quotes[pick(4)]) == kOk) ++accepted;
      // Refused or not, the document stays one that reads back the same.
      if (pick(2) == 0) static_cast<void>(document.AddComment(section, key, (pick(3) == 0 ? "#" : "") + text(4)));
    }
  }
  return document;
}

// Over a thousand documents, each under its own write settings.
TEST(IniFormatTest, SaveThenLoadGivesTheSameDocument) {
  test::ScratchDir dir;
  std::mt19937 random(20);
  int accepted = 0;
  int compared = 0;
  for (uint32_t options = 0; options < 64; ++options) {
    for (int32_t maxLength : {-1, 22, 37, 120}) {
      for (char breakChar : {'\0', ',', ' ', '"'}) {
        Document written = RandomDocument(random, accepted);
        written.SetWriteSettings(maxLength, breakChar, options);
        const int saved = written.Save(dir / "round.ini");
        if (saved == kErrorLineTooShort) continue;  // a long name leaves no room for a piece
        ASSERT_EQ(saved, kOk);
        Document read;
        ASSERT_EQ(read.Load(dir / "round.ini"), kOk);
        const bool comments = (options & kOptionComments) != 0;
        ASSERT_EQ(test::Dump(written, comments), test::Dump(read, comments))
            << "options " << options << " max " << maxLength << " break " << int(breakChar);
        ++compared;
      }
    }
  }
  // Not a test of refusals or of too narrow lines alone.
  EXPECT_GT(accepted, 2000);
  EXPECT_GT(compared, 900);
}

}  // namespace
}  // namespace kx::ini
