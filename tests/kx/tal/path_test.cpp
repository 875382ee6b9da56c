#include "kx/tal/path.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "kx/tal/exception/exception.h"
#include "tests/support/scratch_root.h"

using namespace kx::tal;

TEST(PathText, JoinDirectoryLastComponentAndClean) {
  const std::pair<std::string, std::string> cases[] = {
      {JoinPath("/etc", "brenmar"), "/etc/brenmar"},
      {JoinPath("/etc/", "/brenmar"), "/etc/brenmar"},  // exactly one separator
      {JoinPath("", "x"), "x"},
      {JoinPath("/a", ""), "/a"},
      {DirectoryPart("/a/b/c.cdf"), "/a/b"},
      {DirectoryPart("/c.cdf"), "/"},
      {DirectoryPart("c.cdf"), ""},
      {LastComponent("/mnt/userfs/.syscfg-action/A1/"), "A1"},
      {CleanPath("/a//b/./c/"), "/a/b/c"},
      {CleanPath("/a/b/../c"), "/a/c"},
      {CleanPath("/../../etc/passwd"), "/etc/passwd"},  // never above an absolute root
      {CleanPath("a/../../b"), "../b"},
      {CleanPath("/"), "/"},
      {CleanPath("./"), "."},
  };
  for (const auto& [got, expected] : cases) EXPECT_EQ(got, expected);
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
