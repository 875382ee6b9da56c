// Paths below the system root: a link anywhere on the way is refused, wherever
// it points, by the kernel's walk and by the step-by-step one alike.

#include "daemon/below_root.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "tests/support/scratch_root.h"

namespace {

namespace fs = std::filesystem;
using kx::daemon::EntryBelowRoot;
using kx::daemon::OpenBelowRoot;
using kx::tal::osdep::FileDescriptor;

class BelowRoot : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(root / "/a/b/c");
    root.WriteFile("/a/file", "file\n");
    fs::create_symlink("b", root / "/a/inside");
    fs::create_symlink("/", root / "/a/outside");
  }

  // errno of a failed open, 0 for a successful one.
  static int Error(const FileDescriptor& opened) { return opened.IsOpen() ? 0 : errno; }

  kx::test::ScratchRoot root;
};

TEST_F(BelowRoot, BothWalksRefuseLinksAndClimbing) {
  const FileDescriptor top = kx::tal::osdep::Open(root.Path(), O_PATH | O_DIRECTORY);
  using Walk = FileDescriptor (*)(int, const std::string&);
  for (const Walk walk : {Walk{kx::daemon::OpenDirectoryByKernelWalk}, Walk{kx::daemon::OpenDirectoryStepByStep}}) {
    if (Error(walk(top.Get(), "a")) == ENOSYS) continue;  // a kernel before openat2
    EXPECT_EQ(Error(walk(top.Get(), "a/b/c")), 0);
    EXPECT_EQ(Error(walk(top.Get(), "a/inside/c")), ELOOP);
    EXPECT_EQ(Error(walk(top.Get(), "a/outside")), ELOOP);
    EXPECT_EQ(Error(walk(top.Get(), "a/outside/tmp")), ELOOP);
    EXPECT_EQ(Error(walk(top.Get(), "a/file")), ENOTDIR);
    EXPECT_EQ(Error(walk(top.Get(), "a/../..")), EXDEV);
  }
}

TEST_F(BelowRoot, EntriesAndOpensNeverPassALink) {
  EXPECT_EQ(Error(OpenBelowRoot(root / "/a/file", O_RDONLY)), 0);
  EXPECT_EQ(Error(OpenBelowRoot(root / "//a/./b/c", O_RDONLY | O_DIRECTORY)), 0);
  EXPECT_EQ(Error(OpenBelowRoot(root.Path(), O_RDONLY | O_DIRECTORY)), 0);
  EXPECT_EQ(Error(OpenBelowRoot(root / "/a/inside/c", O_RDONLY)), ELOOP);
  EXPECT_EQ(Error(OpenBelowRoot(root / "/a/inside", O_RDONLY)), ELOOP);
  EXPECT_EQ(Error(OpenBelowRoot(root / "/a/missing/x", O_RDONLY)), ENOENT);
  EXPECT_EQ(Error(OpenBelowRoot(root / "/a/b/../../..", O_RDONLY)), EXDEV);
  EXPECT_EQ(Error(OpenBelowRoot("/etc/passwd", O_RDONLY)), EXDEV);
  // The link itself, not what it points to, is what the *at calls see.
  const EntryBelowRoot link(root / "/a/outside");
  ASSERT_TRUE(link.IsOpen());
  struct stat info {};
  ASSERT_EQ(::fstatat(link.Directory(), link.Name(), &info, AT_SYMLINK_NOFOLLOW), 0);
  EXPECT_TRUE(S_ISLNK(info.st_mode));
}

}  // namespace
