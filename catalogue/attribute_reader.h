#pragma once
// Reading one attribute from a start tag's attribute text, with the format's
// strictness: the name must follow a blank, LF, tab or 0x07 (or the start) and
// be followed directly by "=" and a double quote. A white-space character right
// after the name makes the attribute absent; any other character means a longer
// name, and the search goes on. Values run to the next double quote (or the end)
// and are not decoded; a value in braces ("{...}") is upper-cased, so GUIDs
// compare equal whatever case the text used.

#include <optional>
#include <string>
#include <string_view>

namespace kx::catalogue {

std::optional<std::string> ReadAttribute(std::string_view attributes, std::string_view name);

// The value exactly as written (braced values not upper-cased), for comparing
// with fixed words without copying.
std::optional<std::string_view> ReadAttributeText(std::string_view attributes, std::string_view name);

// The attribute's value, or `fallback` when it is absent.
std::string ReadAttributeOr(std::string_view attributes, std::string_view name, std::string_view fallback);

// True when the attribute is present and reads "YES".
bool ReadYesAttribute(std::string_view attributes, std::string_view name);

}  // namespace kx::catalogue
