#include "actions/start_time.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "kx/tal/osdep/posix_io.h"

namespace kx::actions {
namespace {

constexpr uint32_t kNanosecondsPerSecond = 1000000000u;

// nanoseconds * 2^64 / 10^9 in two 32-bit steps of long division, so that no
// 128-bit arithmetic is needed (the target is 32-bit). Every intermediate product
// is below 2^62.
uint64_t NanosecondsToFraction(uint32_t nanoseconds) {
  const uint64_t scaledHigh = static_cast<uint64_t>(nanoseconds) << 32;
  const uint64_t high = scaledHigh / kNanosecondsPerSecond;
  const uint64_t scaledLow = (scaledHigh % kNanosecondsPerSecond) << 32;
  const uint64_t low = scaledLow / kNanosecondsPerSecond;
  return (high << 32) | low;
}

}  // namespace

StartTime StartTimeFromUnix(int64_t unixSeconds, uint32_t nanoseconds) {
  StartTime time;
  time.seconds = unixSeconds + kSecondsFrom1904To1970;
  time.fraction = nanoseconds < kNanosecondsPerSecond ? NanosecondsToFraction(nanoseconds) : 0;
  return time;
}

StartTime FileModificationStartTime(const std::string& path) {
  struct stat status;
  if (tal::osdep::RetryOnInterrupt([&] { return ::stat(path.c_str(), &status); }) != 0) return StartTime();
  return StartTimeFromUnix(static_cast<int64_t>(status.st_mtim.tv_sec), static_cast<uint32_t>(status.st_mtim.tv_nsec));
}

std::string StartTimeText(const StartTime& time) {
  if (time.IsNoTime()) return "0 0 0 0";
  const uint64_t seconds = static_cast<uint64_t>(time.seconds);
  const uint32_t words[4] = {static_cast<uint32_t>(time.fraction), static_cast<uint32_t>(time.fraction >> 32),
                             static_cast<uint32_t>(seconds), static_cast<uint32_t>(seconds >> 32)};
  char text[4 * 9 + 1];
  std::snprintf(text, sizeof text, "%lX %lX %lX %lX", static_cast<unsigned long>(words[0]),
                static_cast<unsigned long>(words[1]), static_cast<unsigned long>(words[2]),
                static_cast<unsigned long>(words[3]));
  return text;
}

}  // namespace kx::actions
