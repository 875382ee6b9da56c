// The modification stamp of a loaded or saved document: the file's modification
// time in whole seconds, as a 32-bit number, the same on the controller (32-bit
// time_t and long) and the development machine (64-bit).

#include <gtest/gtest.h>
#include <sys/time.h>

#include <tuple>

#include "ini/ini_document.h"
#include "ini_test_support.h"

namespace kx::ini {
namespace {

// The access time is set a day off, so that a stamp taken from it shows.
void SetModificationTime(const std::string& path, time_t seconds, suseconds_t microseconds) {
  const struct timeval times[2] = {{seconds - 86400, 0}, {seconds, microseconds}};
  ASSERT_EQ(::utimes(path.c_str(), times), 0);
}

TEST(IniStampTest, LoadRecordsTheModificationSecondAndChangesAreWholeSeconds) {
  test::ScratchDir dir;
  const std::string path = dir / "stamped.ini";
  test::WriteFile(path, "[A]\nk=v\n");
  const struct {
    time_t seconds;
    uint32_t stamp;
  } cases[] = {
      {1600000000, 0x5F5E1000u},
      {0x7FFFFFFF, 0x7FFFFFFFu},  // the last second a 32-bit time_t holds
      {0x12345678, 0x12345678u},
  };
  for (const auto& c : cases) {
    SetModificationTime(path, c.seconds, 999999);
    Document document;
    ASSERT_EQ(document.Load(path), kOk);
    EXPECT_EQ(document.Stamp(), c.stamp) << c.seconds;
    EXPECT_EQ(document.ChangedOnDisk(), 0) << c.seconds;
  }
  SetModificationTime(path, 1600000000, 0);
  Document document;
  ASSERT_EQ(document.Load(path), kOk);
  for (const auto& [seconds, microseconds, changed] :
       {std::make_tuple(1600000000, 750000, 0), std::make_tuple(1600000001, 0, 1), std::make_tuple(1599999999, 0, 1)}) {
    SetModificationTime(path, seconds, microseconds);
    EXPECT_EQ(document.ChangedOnDisk(), changed) << seconds;
  }
}

}  // namespace
}  // namespace kx::ini
