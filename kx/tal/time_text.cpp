#include "kx/tal/time_text.h"

namespace kx::tal {
namespace {
std::string Format(const std::tm& local, const char* format) {
  char buffer[128];
  const size_t length = std::strftime(buffer, sizeof buffer, format, &local);
  return std::string(buffer, length);
}
}  // namespace

std::string TimeToText(std::time_t when, const char* dateFormat, const char* timeFormat, const char* separator) {
  static const bool zoneLoaded = (::tzset(), true);  // localtime_r alone may skip TZ
  (void)zoneLoaded;
  std::tm local{};
  ::localtime_r(&when, &local);
  return Format(local, dateFormat) + separator + Format(local, timeFormat);
}

}  // namespace kx::tal
