#include "kx/tal/osdep/posix_io.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>

#include "tests/support/scratch_root.h"

namespace kx::tal::osdep {
namespace {

// Files in directories others can write to: only a regular file is read, a FIFO
// never blocks the reader, and a longer file is no answer at all.
TEST(PosixIoTest, SmallRegularFilesOnly) {
  kx::test::ScratchRoot root;
  root.WriteFile("/state", "Install Mode");
  const std::string state = root / "/state";
  EXPECT_EQ(ReadSmallRegularFile(state, 12), "Install Mode");
  EXPECT_EQ(ReadSmallRegularFile(state, 11), std::nullopt);
  EXPECT_EQ(ReadSmallRegularFile(root / "/missing", 12), std::nullopt);
  ASSERT_EQ(::mkfifo((root / "/fifo").c_str(), 0644), 0);
  EXPECT_EQ(ReadSmallRegularFile(root / "/fifo", 12), std::nullopt);
  EXPECT_EQ(ReadSmallRegularFile(root.Path(), 12), std::nullopt);
  std::filesystem::create_symlink(state, root / "/link");
  EXPECT_EQ(ReadSmallRegularFile(root / "/link", 12), "Install Mode");
  EXPECT_EQ(ReadSmallRegularFile(root / "/link", 12, false), std::nullopt);
}

TEST(PosixIoTest, DescriptorsAreClosedOnceByTheirLastOwner) {
  kx::test::ScratchRoot root;
  FileDescriptor file = Open(root / "/f", O_WRONLY | O_CREAT, 0600);
  ASSERT_TRUE(file.IsOpen());
  const int fd = file.Get();
  EXPECT_EQ(::fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  ASSERT_TRUE(WriteAll(fd, "abc", 3));
  FileDescriptor moved = std::move(file);
  EXPECT_FALSE(file.IsOpen());
  EXPECT_EQ(moved.Get(), fd);
  moved = FileDescriptor();
  EXPECT_EQ(::fcntl(fd, F_GETFD), -1);  // closed by the assignment
  FileDescriptor reader = Open(root / "/f", O_RDONLY);
  char bytes[4] = {};
  EXPECT_EQ(ReadUpTo(reader.Get(), bytes, sizeof bytes), 3);
  EXPECT_FALSE(ReadExactly(reader.Get(), bytes, 1));
  EXPECT_EQ(reader.Close(), 0);
  EXPECT_FALSE(Open(root / "/missing", O_RDONLY).IsOpen());
}

}  // namespace
}  // namespace kx::tal::osdep
