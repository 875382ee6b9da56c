#pragma once
#include <ctime>
#include <string>

namespace kx::tal {

// Local time rendered as date + separator + time, each with strftime formats
// (for example "%Y-%m-%d" and "%H:%M:%S %Z").
std::string TimeToText(std::time_t when, const char* dateFormat, const char* timeFormat, const char* separator = " ");

}  // namespace kx::tal
