#include "host/header_value.h"

namespace kx::webhost {
namespace {

bool IsSpace(char c) { return c == ' ' || c == '\t'; }

void SkipSpaces(std::string_view text, size_t& at) {
  while (at < text.size() && IsSpace(text[at])) ++at;
}

// Up to the first of `stops`, blanks trimmed at the end.
std::string ReadToken(std::string_view text, size_t& at, std::string_view stops) {
  const size_t start = at;
  while (at < text.size() && stops.find(text[at]) == std::string_view::npos) ++at;
  size_t end = at;
  while (end > start && IsSpace(text[end - 1])) --end;
  return std::string(text.substr(start, end - start));
}

// A quoted string starting at the opening quote; a backslash takes the next character.
bool ReadQuoted(std::string_view text, size_t& at, std::string& value) {
  for (++at; at < text.size(); ++at) {
    if (text[at] == '"') {
      ++at;
      return true;
    }
    if (text[at] == '\\' && at + 1 < text.size()) ++at;
    value += text[at];
  }
  return false;
}

}  // namespace

std::string ToLower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

std::optional<std::string> HeaderValue::Parameter(std::string_view name) const {
  for (const auto& [key, value] : parameters) {
    if (key == name) return value;
  }
  return std::nullopt;
}

std::optional<HeaderValue> ParseHeaderValue(std::string_view text) {
  HeaderValue result;
  size_t at = 0;
  SkipSpaces(text, at);
  result.token = ToLower(ReadToken(text, at, ";"));
  if (result.token.empty()) return std::nullopt;
  while (at < text.size()) {
    ++at;  // the ";"
    SkipSpaces(text, at);
    if (at == text.size()) break;  // a trailing ";"
    std::string name = ToLower(ReadToken(text, at, "=;"));
    if (name.empty() || at == text.size() || text[at] != '=') return std::nullopt;
    ++at;
    SkipSpaces(text, at);
    std::string value;
    if (at < text.size() && text[at] == '"') {
      if (!ReadQuoted(text, at, value)) return std::nullopt;
      SkipSpaces(text, at);
      if (at < text.size() && text[at] != ';') return std::nullopt;
    } else {
      value = ReadToken(text, at, ";");
    }
    result.parameters.emplace_back(std::move(name), std::move(value));
  }
  return result;
}

}  // namespace kx::webhost
