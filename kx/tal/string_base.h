#pragma once
// Text inside the foundation is wide; at the operating-system and network edges
// it is narrow UTF-8. StringBase holds wide text and converts at those edges.

#include <cstdint>
#include <string>
#include <string_view>

namespace kx::tal {

// UTF-8 ↔ wide text. Invalid input (bad lead or continuation byte, overlong
// form, surrogate, code point above U+10FFFF, truncated sequence) throws
// InvalidSequence.
std::wstring Utf8ToWide(std::string_view utf8);
std::string WideToUtf8(std::wstring_view wide);

// Integer to base-10 text.
std::wstring IntegerToText(int64_t value);
std::wstring IntegerToText(uint64_t value);

// Base-10 text to integer. The whole text must be the number: an optional sign
// ("-" only for signed targets) and at least one digit, nothing else, not even
// blanks. "", "12abc", " 1", "-1" for an unsigned target and values outside the
// target's range all throw UnableToConvert.
int32_t TextToInt32(std::string_view text);
uint32_t TextToUInt32(std::string_view text);
int64_t TextToInt64(std::string_view text);
uint64_t TextToUInt64(std::string_view text);

class StringBase {
 public:
  StringBase() = default;
  StringBase(std::wstring wide) : text_(std::move(wide)) {}  // NOLINT: implicit on purpose
  StringBase(const wchar_t* wide) : text_(wide) {}           // NOLINT
  // From narrow UTF-8; throws InvalidSequence.
  static StringBase FromUtf8(std::string_view utf8) { return StringBase(Utf8ToWide(utf8)); }
  static StringBase FromInteger(int64_t value) { return StringBase(IntegerToText(value)); }

  const std::wstring& Wide() const { return text_; }
  std::string Utf8() const { return WideToUtf8(text_); }
  size_t Length() const { return text_.size(); }
  bool Empty() const { return text_.empty(); }

  // Throws OutOfRange2 "String offset out of range" when offset > Length().
  StringBase Substring(size_t offset, size_t count = std::wstring::npos) const;
  // Throws BoundExceeded2 "Resulting string too large" past the maximum size.
  StringBase& Append(const StringBase& other);

  int32_t ToInt32() const { return TextToInt32(Utf8()); }
  uint32_t ToUInt32() const { return TextToUInt32(Utf8()); }

  bool operator==(const StringBase& other) const { return text_ == other.text_; }
  bool operator!=(const StringBase& other) const { return text_ != other.text_; }
  bool operator<(const StringBase& other) const { return text_ < other.text_; }

 private:
  std::wstring text_;
};

}  // namespace kx::tal
