#include "kx/tal/string_base.h"

#include <limits>
#include <type_traits>

#include "kx/tal/exception/exception.h"

namespace kx::tal {
namespace {

using exception::InvalidSequence;
using exception::UnableToConvert;

bool IsContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// Digits of a number without sign, or throws.
uint64_t ParseMagnitude(std::string_view digits, uint64_t limit) {
  if (digits.empty()) KX_THROW(UnableToConvert);
  uint64_t value = 0;
  for (char c : digits) {
    if (c < '0' || c > '9') KX_THROW(UnableToConvert);
    const uint64_t digit = static_cast<uint64_t>(c - '0');
    if (value > (limit - digit) / 10) KX_THROW(UnableToConvert);
    value = value * 10 + digit;
  }
  return value;
}

int64_t ParseSigned(std::string_view text, int64_t min, int64_t max) {
  bool negative = false;
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  const uint64_t limit = negative ? static_cast<uint64_t>(max) + 1 : static_cast<uint64_t>(max);
  const uint64_t magnitude = ParseMagnitude(text, limit);
  if (!negative) return static_cast<int64_t>(magnitude);
  if (magnitude == static_cast<uint64_t>(max) + 1) return min;
  return -static_cast<int64_t>(magnitude);
}

uint64_t ParseUnsigned(std::string_view text, uint64_t max) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  return ParseMagnitude(text, max);
}

}  // namespace

std::wstring Utf8ToWide(std::string_view utf8) {
  std::wstring wide;
  wide.reserve(utf8.size());
  size_t i = 0;
  while (i < utf8.size()) {
    const auto lead = static_cast<unsigned char>(utf8[i]);
    uint32_t codePoint;
    size_t extra;
    if (lead < 0x80) {
      codePoint = lead;
      extra = 0;
    } else if ((lead & 0xE0) == 0xC0) {
      codePoint = lead & 0x1F;
      extra = 1;
    } else if ((lead & 0xF0) == 0xE0) {
      codePoint = lead & 0x0F;
      extra = 2;
    } else if ((lead & 0xF8) == 0xF0) {
      codePoint = lead & 0x07;
      extra = 3;
    } else {
      KX_THROW(InvalidSequence);
    }
    if (utf8.size() - i <= extra) KX_THROW(InvalidSequence);
    for (size_t k = 1; k <= extra; ++k) {
      const auto byte = static_cast<unsigned char>(utf8[i + k]);
      if (!IsContinuation(byte)) KX_THROW(InvalidSequence);
      codePoint = (codePoint << 6) | (byte & 0x3F);
    }
    static const uint32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
    if (codePoint < kSmallest[extra] || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
      KX_THROW(InvalidSequence);
    }
    wide += static_cast<wchar_t>(codePoint);
    i += extra + 1;
  }
  return wide;
}

std::string WideToUtf8(std::wstring_view wide) {
  std::string utf8;
  utf8.reserve(wide.size());
  for (wchar_t c : wide) {
    // wchar_t is 32 bits wide here, not a character type to widen.
    const uint32_t codePoint = static_cast<std::make_unsigned_t<wchar_t>>(c);  // NOLINT(bugprone-signed-char-misuse)
    if (codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
      KX_THROW(InvalidSequence);
    }
    if (codePoint < 0x80) {
      utf8 += static_cast<char>(codePoint);
    } else if (codePoint < 0x800) {
      utf8 += static_cast<char>(0xC0 | (codePoint >> 6));
      utf8 += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
      utf8 += static_cast<char>(0xE0 | (codePoint >> 12));
      utf8 += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
      utf8 += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else {
      utf8 += static_cast<char>(0xF0 | (codePoint >> 18));
      utf8 += static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F));
      utf8 += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
      utf8 += static_cast<char>(0x80 | (codePoint & 0x3F));
    }
  }
  return utf8;
}

std::wstring IntegerToText(uint64_t value) {
  wchar_t digits[33];  // enough for any 64-bit value in base 10
  size_t start = sizeof digits / sizeof digits[0];
  do {
    if (start == 0) KX_THROW(UnableToConvert);
    digits[--start] = static_cast<wchar_t>(L'0' + value % 10);
    value /= 10;
  } while (value != 0);
  return std::wstring(digits + start, digits + sizeof digits / sizeof digits[0]);
}

std::wstring IntegerToText(int64_t value) {
  if (value >= 0) return IntegerToText(static_cast<uint64_t>(value));
  const uint64_t magnitude = static_cast<uint64_t>(-(value + 1)) + 1;
  return L"-" + IntegerToText(magnitude);
}

int32_t TextToInt32(std::string_view text) {
  return static_cast<int32_t>(
      ParseSigned(text, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
}

uint32_t TextToUInt32(std::string_view text) {
  return static_cast<uint32_t>(ParseUnsigned(text, std::numeric_limits<uint32_t>::max()));
}

int64_t TextToInt64(std::string_view text) {
  return ParseSigned(text, std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max());
}

uint64_t TextToUInt64(std::string_view text) { return ParseUnsigned(text, std::numeric_limits<uint64_t>::max()); }

StringBase StringBase::Substring(size_t offset, size_t count) const {
  if (offset > text_.size()) {
    KX_THROW(exception::OutOfRange2, "String offset out of range");
  }
  return StringBase(text_.substr(offset, count));
}

StringBase& StringBase::Append(const StringBase& other) {
  if (other.text_.size() > text_.max_size() - text_.size()) {
    KX_THROW(exception::BoundExceeded2, "Resulting string too large");
  }
  text_ += other.text_;
  return *this;
}

}  // namespace kx::tal
