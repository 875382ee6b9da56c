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

// Sorted by name; with subdirectories, their contents come before the directory.
TEST(FileFinder, MatchesThePatternInNameOrder) {
  kx::test::ScratchRoot root;
  for (const char* name : {"/t/b.cdf", "/t/a/x", "/t/a/y/z", "/t/notes.txt", "/t/.hidden.cdf"})
    root.WriteFile(name, "");
  ASSERT_EQ(::symlink("/", (root / "/t/link").c_str()), 0);
  const std::string t = root / "/t";
  EXPECT_EQ(FindFiles(t, "*.cdf"), (std::vector<std::string>{t + "/.hidden.cdf", t + "/b.cdf"}));
  EXPECT_EQ(FindFiles(t, "*", true), (std::vector<std::string>{t + "/.hidden.cdf", t + "/a/x", t + "/a/y/z", t + "/a/y",
                                                               t + "/a", t + "/b.cdf", t + "/link", t + "/notes.txt"}));
  EXPECT_EQ(FindFiles(t, "*").size(), 5u);
  EXPECT_TRUE(IsDirectory(t + "/a") && !IsDirectory(t + "/b.cdf") && !PathExists(t + "/none"));
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
  const std::string longLine(100000, 'x');  // not split
  WriteTextFile(path, "first\r\nsecond\n\nlast");
  const std::string withNul("a\0b", 3);                                    // every byte of a line stays in it
  WriteTextFile(path, "first\r\n" + withNul + "\nsecond\n\n" + longLine);  // truncates, does not append
  TextFileReader reader(path);
  std::vector<std::string> lines;
  for (std::string line; reader.ReadLine(line);) lines.push_back(line);
  EXPECT_EQ(lines, (std::vector<std::string>{"first", withNul, "second", "", longLine}));
  EXPECT_EQ(ReadWholeFile(path), "first\r\n" + withNul + "\nsecond\n\n" + longLine);
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
