#include "catalogue/version.h"

#include <algorithm>
#include <limits>

namespace kx::catalogue {
namespace {

bool IsCSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// One piece, as strtol(piece, nullptr, 10) would read it into a 32-bit long.
int32_t ReadPiece(std::string_view piece) {
  size_t i = 0;
  while (i < piece.size() && IsCSpace(piece[i])) ++i;
  bool negative = false;
  if (i < piece.size() && (piece[i] == '+' || piece[i] == '-')) negative = piece[i++] == '-';
  // Accumulate the magnitude, stopping once it is past the range so it cannot overflow.
  constexpr int64_t kLimit = int64_t{std::numeric_limits<int32_t>::max()} + 1;
  int64_t magnitude = 0;
  for (; i < piece.size() && piece[i] >= '0' && piece[i] <= '9'; ++i) {
    if (magnitude <= kLimit) magnitude = magnitude * 10 + (piece[i] - '0');
  }
  if (negative) return magnitude >= kLimit ? std::numeric_limits<int32_t>::min() : static_cast<int32_t>(-magnitude);
  return magnitude >= kLimit ? std::numeric_limits<int32_t>::max() : static_cast<int32_t>(magnitude);
}

char FoldCase(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

}  // namespace

VersionNumbers ParseVersionNumbers(std::string_view text) {
  VersionNumbers numbers;
  if (text.empty()) return numbers;
  numbers.reserve(std::count(text.begin(), text.end(), '.') + 1);  // one allocation, not one per growth
  size_t start = 0;
  while (true) {
    size_t dot = text.find('.', start);
    numbers.push_back(static_cast<char32_t>(ReadPiece(text.substr(start, dot - start))));
    if (dot == std::string_view::npos) break;
    start = dot + 1;
  }
  return numbers;
}

Version ParseVersion(std::string_view text) {
  Version version;
  version.text = std::string(text);
  version.parts = ParseVersionNumbers(text);
  while (!version.parts.empty() && version.parts.back() == 0) version.parts.pop_back();
  return version;
}

bool NumbersAtLeast(const VersionNumbers& a, const VersionNumbers& b) {
  size_t common = a.size() < b.size() ? a.size() : b.size();
  for (size_t i = 0; i < common; ++i) {
    if (a[i] != b[i]) return a[i] > b[i];
  }
  return a.size() >= b.size();
}

bool NamesEqual(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (FoldCase(a[i]) != FoldCase(b[i])) return false;
  }
  return true;
}

}  // namespace kx::catalogue
