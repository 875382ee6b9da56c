#include "ini/ini_syntax.h"

namespace kx::ini {

bool HasLineBreakOrNul(std::string_view text) {
  return text.find_first_of(std::string_view("\n\r\0", 3)) != std::string_view::npos;
}

bool IsWrappedIn(std::string_view text, char quote) {
  return text.size() >= 2 && text.front() == quote && text.back() == quote;
}

bool LooksQuoted(std::string_view text) {
  return !text.empty() && IsQuoteChar(text.front()) && IsWrappedIn(text, text.front());
}

bool SplitContinuationName(std::string_view name, std::string_view& base, uint32_t& number) {
  size_t digitsStart = name.size();
  while (digitsStart > 0 && name[digitsStart - 1] >= '0' && name[digitsStart - 1] <= '9') {
    --digitsStart;
  }
  const size_t digits = name.size() - digitsStart;
  // Nine digits at most keep the number within 32 bits.
  if (digits < static_cast<size_t>(kContinuationDigits) || digits > 9) return false;
  std::string_view head = name.substr(0, digitsStart);
  if (head.size() <= kContinuationMarker.size() ||
      head.substr(head.size() - kContinuationMarker.size()) != kContinuationMarker) {
    return false;
  }
  uint32_t value = 0;
  for (char digit : name.substr(digitsStart)) value = value * 10 + static_cast<uint32_t>(digit - '0');
  if (value == 0) return false;
  base = head.substr(0, head.size() - kContinuationMarker.size());
  number = value;
  return true;
}

bool IsValidSectionName(std::string_view name) {
  return !HasLineBreakOrNul(name) && name.find(']') == std::string_view::npos;
}

bool IsValidKeyName(std::string_view name) {
  if (name.empty() || HasLineBreakOrNul(name) || name.find('=') != std::string_view::npos) {
    return false;
  }
  if (IsBlank(name.front()) || IsBlank(name.back())) return false;
  if (name.front() == '[' || IsCommentChar(name.front())) return false;
  if (name.substr(0, kByteOrderMark.size()) == kByteOrderMark) return false;
  std::string_view base;
  uint32_t number = 0;
  return !SplitContinuationName(name, base, number);
}

bool IsValidValue(std::string_view value, char quote) {
  return !HasLineBreakOrNul(value) && (quote != 0 || !LooksQuoted(value));
}

bool IsValidComment(std::string_view line) {
  return line.empty() || (IsCommentChar(line.front()) && !HasLineBreakOrNul(line));
}

}  // namespace kx::ini
