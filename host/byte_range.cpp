#include "host/byte_range.h"

#include <optional>

namespace kx::webhost {
namespace {

std::optional<uint64_t> Number(std::string_view text) {
  if (text.empty() || text.size() > 19) return std::nullopt;
  uint64_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + static_cast<uint64_t>(c - '0');
  }
  return value;
}

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

}  // namespace

ByteRange ParseByteRange(const char* header, uint64_t fileSize) {
  ByteRange range;
  if (header == nullptr) return range;
  std::string_view text = Trimmed(header);
  constexpr std::string_view kUnit = "bytes=";
  if (text.substr(0, kUnit.size()) != kUnit) return range;
  text = Trimmed(text.substr(kUnit.size()));
  const size_t dash = text.find('-');
  if (dash == std::string_view::npos || text.find(',') != std::string_view::npos) return range;
  const std::string_view firstText = Trimmed(text.substr(0, dash));
  const std::string_view lastText = Trimmed(text.substr(dash + 1));
  const std::optional<uint64_t> first = Number(firstText);
  const std::optional<uint64_t> last = Number(lastText);
  if (firstText.empty()) {
    // The last N bytes.
    if (!last) return range;
    if (*last == 0 || fileSize == 0) return ByteRange{ByteRange::Kind::kUnsatisfiable};
    const uint64_t length = *last < fileSize ? *last : fileSize;
    return ByteRange{ByteRange::Kind::kPart, fileSize - length, fileSize - 1};
  }
  if (!first || (!lastText.empty() && (!last || *last < *first))) return range;
  if (*first >= fileSize) return ByteRange{ByteRange::Kind::kUnsatisfiable};
  const uint64_t end = last && *last < fileSize ? *last : fileSize - 1;
  return ByteRange{ByteRange::Kind::kPart, *first, end};
}

}  // namespace kx::webhost
