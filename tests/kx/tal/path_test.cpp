#include <gtest/gtest.h>

#include <cstdlib>

#include "kx/tal/exception/exception.h"
#include "kx/tal/path.h"
#include "tests/support/scratch_root.h"

using namespace kx::tal;

TEST(PathText, JoinPutsExactlyOneSeparator) {
  EXPECT_EQ(JoinPath("/etc", "brenmar"), "/etc/brenmar");
  EXPECT_EQ(JoinPath("/etc/", "brenmar"), "/etc/brenmar");
  EXPECT_EQ(JoinPath("/etc/", "/brenmar"), "/etc/brenmar");
  EXPECT_EQ(JoinPath("", "x"), "x");
  EXPECT_EQ(JoinPath("/a", ""), "/a");
}

TEST(PathText, DirectoryAndLastComponent) {
  EXPECT_EQ(DirectoryPart("/a/b/c.cdf"), "/a/b");
  EXPECT_EQ(DirectoryPart("/c.cdf"), "/");
  EXPECT_EQ(DirectoryPart("c.cdf"), "");
  EXPECT_EQ(LastComponent("/mnt/userfs/.syscfg-action/A1/"), "A1");
  EXPECT_EQ(LastComponent("A1"), "A1");
}

TEST(PathText, CleanNeverClimbsAboveAnAbsoluteRoot) {
  EXPECT_EQ(CleanPath("/a//b/./c/"), "/a/b/c");
  EXPECT_EQ(CleanPath("/a/b/../c"), "/a/c");
  EXPECT_EQ(CleanPath("/../../etc/passwd"), "/etc/passwd");
  EXPECT_EQ(CleanPath("a/../../b"), "../b");
  EXPECT_EQ(CleanPath("/"), "/");
  EXPECT_EQ(CleanPath("./"), ".");
}

TEST(SystemRootTest, FixedPathsMoveBelowTheRoot) {
  {
    kx::test::ScratchRoot root;
    EXPECT_EQ(SystemRoot(), root.Path());
    EXPECT_EQ(RootedPath("/etc/brenmar/share"), root.Path() + "/etc/brenmar/share");
    EXPECT_EQ(SystemConfigDirectory(), root.Path() + "/etc");
    EXPECT_EQ(SharedFileDirectory(), root.Path() + "/var/tmp/brenmar/shared");
    ::setenv("KXTALTMPSHAREDFILEDIR", "/tmp/elsewhere", 1);
    EXPECT_EQ(SharedFileDirectory(), "/tmp/elsewhere");
    ::unsetenv("KXTALTMPSHAREDFILEDIR");
  }
  ::unsetenv("KX_SYSTEM_ROOT");
  EXPECT_EQ(RootedPath("/etc/brenmar"), "/etc/brenmar");
}

TEST(SystemRootTest, RelativePathIsRefusedWithItsLocation) {
  try {
    RootedPath("etc/brenmar");
    FAIL();
  } catch (const kx::tal::exception::InvalidArgument& e) {
    EXPECT_GT(e.line(), 0);
    EXPECT_NE(std::string(e.file()).find("path.cpp"), std::string::npos);
  }
}

TEST(Directories, CreateAndTest) {
  kx::test::ScratchRoot root;
  const std::string deep = root / "/a/b/c";
  EXPECT_FALSE(PathExists(deep));
  CreateDirectories(deep);
  EXPECT_TRUE(IsDirectory(deep));
  root.WriteFile("/a/file", "x");
  EXPECT_TRUE(PathExists(root / "/a/file"));
  EXPECT_FALSE(IsDirectory(root / "/a/file"));
}
