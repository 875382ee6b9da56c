#include "actions/start_time.h"

#include <gtest/gtest.h>

namespace kx::actions {
namespace {

TEST(StartTimeTest, WordsAreFractionLowHighThenSecondsLowHigh) {
  const struct {
    int64_t unixSeconds;
    uint32_t nanoseconds;
    const char* text;
  } cases[] = {
      {1600000000, 0, "0 0 DB83C080 0"},
      {0, 0, "0 0 7C25B080 0"},
      {-kSecondsFrom1904To1970 - 1, 0, "0 0 FFFFFFFF FFFFFFFF"},  // before 1904
      {4294967296 - kSecondsFrom1904To1970, 0, "0 0 0 1"},        // seconds need the high word
      {0, 500000000, "0 80000000 7C25B080 0"},
      {0, 1, "4B82FA09 4 7C25B080 0"},  // 2^64 / 10^9 = 0x44B82FA09.A...
      {0, 999999999, "B47D05F6 FFFFFFFB 7C25B080 0"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(StartTimeText(StartTimeFromUnix(c.unixSeconds, c.nanoseconds)), c.text) << c.unixSeconds;
  }
  EXPECT_EQ(StartTimeText(StartTime()), "0 0 0 0");
}

}  // namespace
}  // namespace kx::actions
