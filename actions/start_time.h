#pragma once
// When an action began, as the remote host's 128-bit timestamp: signed whole
// seconds since 1904-01-01 00:00:00 UTC and an unsigned binary fraction of a
// second (fraction / 2^64 s).

#include <cstdint>
#include <limits>
#include <string>

namespace kx::actions {

// Seconds between 1904-01-01 and 1970-01-01, both UTC.
constexpr int64_t kSecondsFrom1904To1970 = 2082844800;

struct StartTime {
  int64_t seconds = std::numeric_limits<int64_t>::min();  // the default is "no time"
  uint64_t fraction = 0;

  bool IsNoTime() const { return seconds == std::numeric_limits<int64_t>::min() && fraction == 0; }
};

// A Unix time (seconds and nanoseconds) as a StartTime.
StartTime StartTimeFromUnix(int64_t unixSeconds, uint32_t nanoseconds);

// The modification time of the file, or "no time" when it cannot be examined.
StartTime FileModificationStartTime(const std::string& path);

// The four 32-bit words fraction low, fraction high, seconds low, seconds high in
// upper-case hexadecimal without leading zeros, one blank between them;
// "0 0 0 0" for "no time".
std::string StartTimeText(const StartTime& time);

}  // namespace kx::actions
