#pragma once
// A direct, recursive reading of the element scan rules on plain text, without
// any index. Slow on purpose-built input (it may recurse once per open tag), so it
// serves only to check ElementScanner on small texts, in tests and in the fuzzer.

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kx::catalogue::reference {

struct FoundElement {
  std::string name;
  std::string attributes;
  std::string content;
  size_t next = 0;
};

namespace detail {

constexpr size_t npos = std::string_view::npos;

inline bool EndsName(char c) {
  return c == '\0' || c == '\t' || c == '\n' || c == '\r' || c == ' ' || c == '/' || c == '>';
}

// What lies at a "<": markup to jump over, a stray "<", or a tag.
struct TagAt {
  enum Kind { kJump, kStray, kTag, kEndOfScan } kind = kEndOfScan;
  size_t resume = 0;  // kJump: where to go on
  bool closing = false;
  size_t nameBegin = 0, nameEnd = 0;
  size_t greaterThan = npos;
};

inline TagAt ReadTagAt(std::string_view text, size_t lessThan) {
  TagAt tag;
  size_t p = lessThan + 1;
  tag.closing = p < text.size() && text[p] == '/';
  if (tag.closing) ++p;
  if (text.compare(p, 3, "!--") == 0 || text.compare(p, 8, "![CDATA[") == 0) {
    const bool comment = text[p + 1] == '-';
    size_t end = comment ? text.find("-->", p + 3) : text.find("]]>", p + 8);
    if (end == npos) return tag;
    tag.kind = TagAt::kJump;
    tag.resume = end + 3;
    return tag;
  }
  size_t q = p;
  while (q < text.size() && q - p < 35 && !EndsName(text[q])) ++q;
  char first = q > p ? text[p] : '\0';
  if (!((first >= 'A' && first <= 'Z') || (first >= 'a' && first <= 'z') || first == '?')) {
    tag.kind = TagAt::kStray;
    return tag;
  }
  tag.kind = TagAt::kTag;
  tag.nameBegin = p;
  tag.nameEnd = q;
  tag.greaterThan = text.find('>', q);
  return tag;
}

// From just after a start tag: (end of content, position after the closing tag).
inline std::pair<size_t, size_t> SkipContent(std::string_view text, size_t pos, std::string_view closeName) {
  const std::pair<size_t, size_t> toEnd{text.size(), text.size()};
  while (true) {
    size_t lessThan = text.find('<', pos);
    if (lessThan == npos) return toEnd;
    TagAt tag = ReadTagAt(text, lessThan);
    if (tag.kind == TagAt::kEndOfScan) return toEnd;
    if (tag.kind == TagAt::kJump) {
      pos = tag.resume;
      continue;
    }
    if (tag.kind == TagAt::kStray) {
      pos = lessThan + 1;
      continue;
    }
    std::string_view name = text.substr(tag.nameBegin, tag.nameEnd - tag.nameBegin);
    if (tag.closing) {
      if (closeName.empty() || name == closeName) {
        return {lessThan, tag.greaterThan == npos ? text.size() : tag.greaterThan + 1};
      }
      if (tag.greaterThan == npos) return toEnd;
      pos = tag.greaterThan + 1;
      continue;
    }
    if (tag.greaterThan == npos) return toEnd;
    bool empty = name[0] == '?' || (tag.greaterThan > tag.nameEnd && text[tag.greaterThan - 1] == '/');
    pos = empty ? tag.greaterThan + 1 : SkipContent(text, tag.greaterThan + 1, name).second;
  }
}

}  // namespace detail

inline std::optional<FoundElement> FindElement(std::string_view text, size_t pos, std::string_view name) {
  using namespace detail;
  while (true) {
    size_t lessThan = text.find('<', pos);
    if (lessThan == npos) return std::nullopt;
    TagAt tag = ReadTagAt(text, lessThan);
    if (tag.kind == TagAt::kEndOfScan) return std::nullopt;
    if (tag.kind == TagAt::kJump) {
      pos = tag.resume;
      continue;
    }
    if (tag.kind == TagAt::kStray) {
      pos = lessThan + 1;
      continue;
    }
    std::string_view tagName = text.substr(tag.nameBegin, tag.nameEnd - tag.nameBegin);
    if (tag.closing || (!name.empty() && tagName != name)) {
      if (tag.greaterThan == npos) return std::nullopt;
      pos = tag.greaterThan + 1;
      continue;
    }
    FoundElement found;
    found.name = std::string(tagName);
    if (tag.greaterThan == npos) {
      found.attributes = std::string(text.substr(tag.nameEnd));
      found.next = text.size();
      return found;
    }
    size_t g = tag.greaterThan;
    bool selfClosing = g > tag.nameEnd && text[g - 1] == '/';
    found.attributes = std::string(text.substr(tag.nameEnd, (selfClosing ? g - 1 : g) - tag.nameEnd));
    found.next = g + 1;
    if (tagName[0] == '?' || selfClosing) return found;
    auto [contentEnd, next] = SkipContent(text, g + 1, name);
    found.content = std::string(text.substr(g + 1, contentEnd - (g + 1)));
    found.next = next;
    return found;
  }
}

}  // namespace kx::catalogue::reference
