#include "kx/tal/osdep/simple_shared_memory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "kx/tal/exception/exception.h"
#include "kx/tal/osdep/named_mutex.h"
#include "tests/kx/tal/osdep/child_process.h"
#include "tests/support/scratch_root.h"

namespace kx::tal::osdep {
namespace {

const char kRegion[] = "SoftwareUpdateProgressSharedMem";
const char kMutex[] = "SoftwareUpdateProgressMutex";

class SimpleSharedMemoryTest : public ::testing::Test {
 protected:
  // Writes bytes straight into the region's file, as a stray writer would.
  void WriteIntoFile(const void* bytes, size_t count, off_t offset) const {
    const int fd = ::open((root_ / "/var/tmp/brenmar/shared/" + kRegion).c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(static_cast<ssize_t>(count), ::pwrite(fd, bytes, count, offset));
    ::close(fd);
  }

  test::ScratchRoot root_;
};

TEST_F(SimpleSharedMemoryTest, TwoProcessesSeeEachOthersText) {
  NamedMutex mutex(kMutex);
  SimpleSharedMemory region(kRegion, 5000, &mutex);
  EXPECT_EQ("", region.ReadText());
  region.WriteText("<Current Percent=\"10\"/>");
  EXPECT_EQ(0, test::RunInChild([] {
              NamedMutex mutex(kMutex);
              SimpleSharedMemory region(kRegion, 5000, &mutex);
              if (region.ReadText() != "<Current Percent=\"10\"/>") return 1;
              region.WriteText("<Current Percent=\"20\"/>");
              return 0;
            }));
  EXPECT_EQ("<Current Percent=\"20\"/>", region.ReadText());
}

TEST_F(SimpleSharedMemoryTest, LengthWordThatDisagreesIsDetected) {
  SimpleSharedMemory region(kRegion, 100);
  region.WriteText("kept");
  {
    // The file is long enough already, so it keeps the first opener's word.
    SimpleSharedMemory shorter(kRegion, 50);
    EXPECT_THROW(shorter.ReadText(), exception::SharedMemoryCorrupted);
  }
  // A longer opener extends the file and writes its own word.
  SimpleSharedMemory longer(kRegion, 200);
  EXPECT_EQ("kept", longer.ReadText());
  EXPECT_THROW(region.CheckIntegrity(0), exception::SharedMemoryCorrupted);

  const uint32_t wrongLength = 199;  // as a stray writer would leave it
  WriteIntoFile(&wrongLength, sizeof wrongLength, 0);
  EXPECT_THROW(longer.CheckIntegrity(0), exception::SharedMemoryCorrupted);
  EXPECT_THROW(longer.ReadText(), exception::SharedMemoryCorrupted);
  EXPECT_THROW(longer.WriteText("x"), exception::SharedMemoryCorrupted);
}

TEST_F(SimpleSharedMemoryTest, NothingLeavesTheDataArea) {
  SimpleSharedMemory region(kRegion, 16);  // 12 data bytes: 11 characters and the NUL
  EXPECT_NO_THROW(region.CheckIntegrity(15));
  EXPECT_THROW(region.CheckIntegrity(16), exception::BufferOverflow);
  EXPECT_THROW(region.ReadText(16), exception::BufferOverflow);
  EXPECT_THROW(region.WriteText("", 100), exception::BufferOverflow);
  // Text that does not fit leaves the region unchanged; at the last byte only the NUL fits.
  region.WriteText("12345678901");
  EXPECT_THROW(region.WriteText("123456789012"), exception::BufferOverflow);
  EXPECT_EQ("12345678901", region.ReadText());
  region.WriteText("", 15);
  EXPECT_THROW(region.WriteText("x", 15), exception::BufferOverflow);
}

TEST_F(SimpleSharedMemoryTest, TextWithoutNulEndsAtTheRegionEnd) {
  // One page, so a read past the end would leave the mapping.
  SimpleSharedMemory region(kRegion, 4096);
  const std::string filler(4092, 'x');
  WriteIntoFile(filler.data(), filler.size(), 4);
  EXPECT_EQ(filler, region.ReadText());
  EXPECT_EQ("xxxx", region.ReadText(4092));
}

}  // namespace
}  // namespace kx::tal::osdep
