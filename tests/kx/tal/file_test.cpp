#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "kx/tal/exception/exception.h"
#include "kx/tal/exception/os_exception.h"
#include "kx/tal/file_finder.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"
#include "kx/tal/time_text.h"
#include "tests/support/scratch_root.h"

using namespace kx::tal;

TEST(FileFinder, MatchesThePatternInNameOrder) {
  kx::test::ScratchRoot root;
  for (const char* name : {"/c/b.cdf", "/c/a.cdf", "/c/notes.txt", "/c/.hidden.cdf"}) root.WriteFile(name, "");
  const std::string dir = root / "/c";
  EXPECT_EQ(FindFiles(dir, "*.cdf"),
            (std::vector<std::string>{dir + "/.hidden.cdf", dir + "/a.cdf", dir + "/b.cdf"}));
  EXPECT_EQ(FindFiles(dir, "*").size(), 4u);
}

TEST(FileFinder, SubdirectoryContentsComeBeforeTheDirectory) {
  kx::test::ScratchRoot root;
  root.WriteFile("/t/a/x", "");
  root.WriteFile("/t/a/y/z", "");
  root.WriteFile("/t/b", "");
  ASSERT_EQ(::symlink("/", (root / "/t/link").c_str()), 0);
  const std::string t = root / "/t";
  EXPECT_EQ(FindFiles(t, "*", true),
            (std::vector<std::string>{t + "/a/x", t + "/a/y/z", t + "/a/y", t + "/a", t + "/b", t + "/link"}));
  EXPECT_EQ(FindFiles(t, "*"), (std::vector<std::string>{t + "/a", t + "/b", t + "/link"}));
}

TEST(FileFinder, MissingDirectoryThrowsPosixError) {
  kx::test::ScratchRoot root;
  try {
    FindFiles(root / "/none", "*");
    FAIL();
  } catch (const osdep::PosixError& e) {
    EXPECT_EQ(e.code(), 7);
  }
}

TEST(TextFiles, WriteWholeThenReadLines) {
  kx::test::ScratchRoot root;
  const std::string path = root / "/f.txt";
  WriteTextFile(path, "first\r\nsecond\n\nlast");
  WriteTextFile(path, "first\r\nsecond\n\nlast");  // truncates, does not append
  TextFileReader reader(path);
  std::vector<std::string> lines;
  for (std::string line; reader.ReadLine(line);) lines.push_back(line);
  EXPECT_EQ(lines, (std::vector<std::string>{"first", "second", "", "last"}));
  EXPECT_EQ(ReadWholeFile(path), "first\r\nsecond\n\nlast");
}

TEST(TextFiles, LongLinesAreNotSplit) {
  kx::test::ScratchRoot root;
  const std::string path = root / "/long";
  const std::string line(100000, 'x');
  WriteTextFile(path, line + "\n");
  TextFileReader reader(path);
  std::string read;
  ASSERT_TRUE(reader.ReadLine(read));
  EXPECT_EQ(read, line);
  EXPECT_FALSE(reader.ReadLine(read));
}

TEST(TextFiles, OpenFailureThrowsOrReturnsNull) {
  kx::test::ScratchRoot root;
  EXPECT_THROW(TextFileReader(root / "/missing"), osdep::PosixError);
  errno = 0;
  EXPECT_EQ(OpenFile(root / "/missing", "r", false), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_THROW(WriteTextFile(root / "/no/such/dir/f", "x"), osdep::PosixError);
}

TEST(TimeText, JoinsDateAndTimeFormats) {
  ::setenv("TZ", "UTC", 1);
  ::tzset();
  EXPECT_EQ(TimeToText(1600000000, "%Y-%m-%d", "%H:%M:%S %Z"), "2020-09-13 12:26:40 UTC");
  EXPECT_EQ(TimeToText(1600000000, "%Y%m%d", "%H%M%S", "_"), "20200913_122640");
}
