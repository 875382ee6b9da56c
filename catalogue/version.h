#pragma once
// Version numbers of catalogue entries and the case-insensitive name rule.

#include <cstdint>
#include <string>
#include <string_view>

namespace kx::catalogue {

// The numbers of a version, unsigned 32-bit each. A char32_t string keeps up to
// three of them inside the object: a catalogue read parses several versions per
// package, nearly all that short, and none of them then costs an allocation.
using VersionNumbers = std::u32string;

// A version as written in a CDF ("2.0.1") and its numeric fields. `parts` never
// ends in 0, so 2, 2.0 and 2.0.0 have equal parts. Comparisons look only at
// `parts`; a version is present when its `text` is non-empty.
struct Version {
  VersionNumbers parts;
  std::string text;

  bool operator==(const Version& other) const { return parts == other.parts && text == other.text; }
  bool operator!=(const Version& other) const { return !(*this == other); }
};

// Every dot-separated piece of `text` read like strtol in base 10 (leading white
// space, optional sign, digits up to the first other character, clamped to the
// 32-bit signed range) and stored as unsigned: "-1" gives 4294967295, "1..2"
// gives 1, 0, 2. Trailing zeros are kept; "" gives no numbers.
VersionNumbers ParseVersionNumbers(std::string_view text);

// ParseVersionNumbers with trailing zeros removed; `text` is kept as given.
Version ParseVersion(std::string_view text);

// Lexicographic order as unsigned numbers; a proper prefix is the smaller.
bool NumbersAtLeast(const VersionNumbers& a, const VersionNumbers& b);
inline bool VersionAtLeast(const Version& a, const Version& b) { return NumbersAtLeast(a.parts, b.parts); }
inline bool VersionPartsEqual(const Version& a, const Version& b) { return a.parts == b.parts; }

// Byte-wise equality after folding ASCII letters to upper case.
bool NamesEqual(std::string_view a, std::string_view b);

}  // namespace kx::catalogue
