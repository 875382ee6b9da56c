#pragma once
// Header values of the form `token; name=value; name="quoted value"`, as in
// Content-Type and Content-Disposition.

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kx::webhost {

struct HeaderValue {
  std::string token;                                            // lower case
  std::vector<std::pair<std::string, std::string>> parameters;  // names lower case, in order

  // The value of the first parameter of that (lower-case) name.
  std::optional<std::string> Parameter(std::string_view name) const;
};

// Empty optional when the text does not have that form (an unterminated quote,
// a parameter without "=", an empty token).
std::optional<HeaderValue> ParseHeaderValue(std::string_view text);

std::string ToLower(std::string_view text);

}  // namespace kx::webhost
