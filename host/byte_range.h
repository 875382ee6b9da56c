#pragma once
// The one byte range of a "Range" request header ("bytes=0-99", "bytes=100-",
// "bytes=-100"), against a file of a known size.

#include <cstdint>
#include <string_view>

namespace kx::webhost {

struct ByteRange {
  enum class Kind {
    kWhole,          // no Range, or one that is ignored (another unit, several ranges, bad syntax)
    kPart,           // first..last, both within the file
    kUnsatisfiable,  // starts past the end, or an empty suffix
  };
  Kind kind = Kind::kWhole;
  uint64_t first = 0;
  uint64_t last = 0;
};

// `header` null or empty: no Range.
ByteRange ParseByteRange(const char* header, uint64_t fileSize);

}  // namespace kx::webhost
