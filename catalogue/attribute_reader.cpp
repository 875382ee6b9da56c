#include "catalogue/attribute_reader.h"

#include <algorithm>

namespace kx::catalogue {
namespace {

bool IsSeparator(char c) { return c == ' ' || c == '\n' || c == '\t' || c == '\a'; }

}  // namespace

std::optional<std::string_view> ReadAttributeText(std::string_view attributes, std::string_view name) {
  if (name.empty()) return std::nullopt;
  for (size_t at = attributes.find(name); at != std::string_view::npos; at = attributes.find(name, at + 1)) {
    if (at > 0 && !IsSeparator(attributes[at - 1])) continue;
    const size_t after = at + name.size();
    if (after >= attributes.size()) return std::nullopt;
    if (IsSeparator(attributes[after])) return std::nullopt;  // no white space before "="
    if (attributes[after] != '=') continue;                    // a longer name
    if (after + 1 >= attributes.size() || attributes[after + 1] != '"') return std::nullopt;
    const size_t valueBegin = after + 2;
    const size_t valueEnd = std::min(attributes.find('"', valueBegin), attributes.size());
    return attributes.substr(valueBegin, valueEnd - valueBegin);
  }
  return std::nullopt;
}

namespace {

std::string ValueOf(std::string_view text) {
  std::string value(text);
  if (value.size() >= 2 && value.front() == '{' && value.back() == '}') {
    for (char& c : value) {
      if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
  }
  return value;
}

}  // namespace

std::optional<std::string> ReadAttribute(std::string_view attributes, std::string_view name) {
  std::optional<std::string_view> text = ReadAttributeText(attributes, name);
  if (!text) return std::nullopt;
  return ValueOf(*text);
}

std::string ReadAttributeOr(std::string_view attributes, std::string_view name, std::string_view fallback) {
  // Built in place: readers call this for nearly every field.
  std::optional<std::string_view> text = ReadAttributeText(attributes, name);
  return text ? ValueOf(*text) : std::string(fallback);
}

bool ReadYesAttribute(std::string_view attributes, std::string_view name) {
  return ReadAttributeText(attributes, name) == std::string_view("YES");
}

}  // namespace kx::catalogue
