// The progress region's file as the other process reads it, byte for byte: a
// 32-bit length word in the machine's byte order (little-endian on the controller
// and on the development machine alike), then the text. The controller (32-bit
// long) and the development machine (64-bit long) must write the same bytes.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "kx/tal/osdep/simple_shared_memory.h"
#include "tests/support/scratch_root.h"

namespace kx::tal::osdep {
namespace {

std::vector<unsigned char> FirstBytes(const std::string& path, size_t count) {
  std::vector<unsigned char> bytes(count);
  const int fd = ::open(path.c_str(), O_RDONLY);
  if (fd < 0) return {};
  const ssize_t got = ::pread(fd, bytes.data(), count, 0);
  ::close(fd);
  bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
  return bytes;
}

TEST(RegionBytesTest, LengthWordIsFourLittleEndianBytesBeforeTheText) {
  test::ScratchRoot root;
  const std::string file = root / "/var/tmp/brenmar/shared/LayoutRegion";
  {
    // 0x00012345: every byte of the word differs, so a swapped or widened word shows.
    SimpleSharedMemory region("LayoutRegion", 0x12345);
    region.WriteText("<P/>");
    EXPECT_EQ(FirstBytes(file, 10),
              (std::vector<unsigned char>{0x45, 0x23, 0x01, 0x00, '<', 'P', '/', '>', 0x00, 0x00}));
  }
  // The region as the daemon would have left it: 4096 = 00 10 00 00, then text.
  std::filesystem::resize_file(file, 4096);
  const unsigned char bytes[] = {0x00, 0x10, 0x00, 0x00, 'o', 'k', 0x00};
  const int fd = ::open(file.c_str(), O_WRONLY);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::pwrite(fd, bytes, sizeof bytes, 0), static_cast<ssize_t>(sizeof bytes));
  ::close(fd);
  SimpleSharedMemory region("LayoutRegion", 4096);
  EXPECT_NO_THROW(region.CheckIntegrity(0));
  EXPECT_EQ(region.ReadText(), "ok");
}

}  // namespace
}  // namespace kx::tal::osdep
