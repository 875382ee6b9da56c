#include "catalogue/attribute_reader.h"

#include <algorithm>
#include <cstring>

namespace kx::catalogue {
namespace {

bool IsSeparator(char c) { return c == ' ' || c == '\n' || c == '\t' || c == '\a'; }

// What a lookup of a name that ends at `end` answers: its value when "=" and a
// double quote follow, else absent.
std::optional<std::string_view> ValueAfterName(std::string_view attributes, size_t end) {
  if (end + 1 >= attributes.size() || attributes[end] != '=' || attributes[end + 1] != '"') return std::nullopt;
  const size_t valueBegin = end + 2;
  const size_t valueEnd = std::min(attributes.find('"', valueBegin), attributes.size());
  return attributes.substr(valueBegin, valueEnd - valueBegin);
}

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

std::optional<std::string_view> ReadAttributeText(std::string_view attributes, std::string_view name) {
  if (name.empty()) return std::nullopt;
  const char* const data = attributes.data();
  const size_t size = attributes.size();
  // Each place the name's first letter begins a word, in order: the cheap test
  // of the preceding character comes before comparing the rest of the name.
  for (size_t at = 0; at + name.size() <= size; ++at) {
    const void* first = std::memchr(data + at, name[0], size - name.size() + 1 - at);
    if (first == nullptr) break;
    at = static_cast<const char*>(first) - data;
    if (at > 0 && !IsSeparator(data[at - 1])) continue;
    if (attributes.compare(at, name.size(), name) != 0) continue;
    const size_t after = at + name.size();
    if (after < size && !IsSeparator(data[after]) && data[after] != '=') continue;  // a longer name
    return ValueAfterName(attributes, after);  // white space before "=" makes it absent
  }
  return std::nullopt;
}

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
