#pragma once
// Logging: one call with a mask bit and a text. Messages whose bit is not in the
// log mask are dropped before anything is formatted; the rest go to syslog and,
// when target bit 1 is set, to the trace file.

#include <cstdint>
#include <functional>
#include <string>

namespace kx::tal {

namespace logmask {
constexpr uint32_t kError = 1;
constexpr uint32_t kError2 = 2;
constexpr uint32_t kEntry = 16;  // each entry point and helper logs its own name
constexpr uint32_t kInfo = 32;
}  // namespace logmask

// Trace-log settings: the log mask (default 1), the target bits (default 1; bit 1
// writes the trace file), the directory of the trace file and the low-disk
// threshold in bytes (0: never too low).
void InitTraceLog(uint32_t mask, uint32_t targets, const std::string& directory, uint64_t lowDiskThresholdBytes);
// Closes the trace file; the settings stay.
void CloseTraceLog();

uint32_t LogMaskValue();
inline bool LogEnabled(uint32_t maskBit) { return (LogMaskValue() & maskBit) != 0; }

void Log(uint32_t maskBit, const std::string& text);

// Tests capture what is logged (after the mask test); an empty function stops it.
using LogCapture = std::function<void(uint32_t maskBit, const std::string& text)>;
void SetLogCapture(LogCapture capture);

}  // namespace kx::tal

// Builds the text only when the mask bit is enabled.
#define KX_LOG(maskBit, text)                                          \
  do {                                                                 \
    if (::kx::tal::LogEnabled(maskBit)) ::kx::tal::Log(maskBit, text); \
  } while (0)
