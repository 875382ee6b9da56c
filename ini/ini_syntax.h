#pragma once
// The line syntax shared by the writer, the parser and the setters: which
// names, values and comments a file can carry so that they read back unchanged.

#include <cstdint>
#include <string_view>

namespace kx::ini {

inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// A key that does not fit the maximum line length is written as "<name> Line0001",
// "<name> Line0002", ... each holding one piece of the value.
inline constexpr std::string_view kContinuationMarker = " Line";
inline constexpr int kContinuationDigits = 4;

inline bool IsBlank(char c) { return c == ' ' || c == '\t'; }
inline bool IsQuoteChar(char c) { return c == '"' || c == '\''; }
inline bool IsCommentChar(char c) { return c == ';' || c == '#'; }

// Line feed, carriage return and NUL end or cut a line, so nothing written may hold them.
bool HasLineBreakOrNul(std::string_view text);

// At least two characters, the first and the last being `quote`.
bool IsWrappedIn(std::string_view text, char quote);
// Wrapped in a quote character, so read as a quoted value.
bool LooksQuoted(std::string_view text);

// Splits "<base> Line<digits>" (four to nine digits, number >= 1) into base and number.
bool SplitContinuationName(std::string_view name, std::string_view& base, uint32_t& number);

// Any text without ']' or line breaks; "" names the unnamed section.
bool IsValidSectionName(std::string_view name);
// Non-empty, no '=', no blank at either end, not starting like a header, a
// comment or a byte-order mark (all skipped or taken apart when read), and not
// itself looking like a continuation key.
bool IsValidKeyName(std::string_view name);
// No line breaks; unquoted, not wrapped in quotes (they would be taken for quoting).
bool IsValidValue(std::string_view value, char quote);
// A whole line starting with a comment character, or "" for a blank line.
bool IsValidComment(std::string_view line);

}  // namespace kx::ini
