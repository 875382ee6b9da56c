// Fuzz target for the lock record's Id line, which the daemon reads back from
// a file any process may have written: any action ID is written as one line
// that reads back as the same ID, and any line that reads as an ID is the line
// that ID is written as.

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "exchange/lock_record.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string line = kx::exchange::LockRecordIdLine(text);
  if (line.find('\n') != line.size() - 1 || kx::exchange::LockRecordActionId(line) != text) std::abort();

  if (const std::optional<std::string> id = kx::exchange::LockRecordActionId(text)) {
    std::string written = kx::exchange::LockRecordIdLine(*id);
    if (text.empty() || text.back() != '\n') written.pop_back();
    if (written != text) std::abort();
  }
  return 0;
}
