#include "catalogue/element_scanner.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace kx::catalogue {
namespace {

constexpr size_t kMaxNameLength = 35;

// The characters that end a tag name, as a table: the name loop runs for every tag.
struct NameEnds {
  bool ends[256] = {};
  constexpr NameEnds() {
    for (unsigned char c : {'\0', '\t', '\n', '\r', ' ', '/', '>'}) ends[c] = true;
  }
};
constexpr NameEnds kNameEnds;

bool EndsName(char c) { return kNameEnds.ends[static_cast<unsigned char>(c)]; }

bool BeginsElementName(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '?'; }

bool StartsWith(std::string_view text, size_t position, std::string_view prefix) {
  return text.compare(position, prefix.size(), prefix) == 0;
}

}  // namespace

ElementScanner::ElementScanner(std::string_view text)
    : text_(text.substr(0, std::min<size_t>(text.size(), UINT32_MAX - 1))) {
  tags_.reserve(text_.size() / 16 + 16);  // catalogue text has a tag every 20 to 30 characters
}

bool ElementScanner::ReadTagsThrough(size_t index) const {
  while (index >= tags_.size() && !allRead_) ReadNextTag();
  return index < tags_.size();
}

uint32_t ElementScanner::CloseOf(size_t index) const {
  while (tags_[index].close == kNoClose && !allRead_) ReadNextTag();
  return tags_[index].close;
}

// Appends the next tag, passing over comments, CDATA and declarations, or marks
// the text as read.
void ElementScanner::ReadNextTag() const {
  const char* data = text_.data();
  const size_t size = text_.size();
  size_t position = readUpTo_;
  while (position < size) {
    const void* lessThan = std::memchr(data + position, '<', size - position);
    if (lessThan == nullptr) break;
    const size_t begin = static_cast<const char*>(lessThan) - data;
    size_t nameBegin = begin + 1;
    const bool closing = nameBegin < size && data[nameBegin] == '/';
    if (closing) ++nameBegin;

    if (nameBegin < size && data[nameBegin] == '!' &&
        (StartsWith(text_, nameBegin, "!--") || StartsWith(text_, nameBegin, "![CDATA["))) {
      const bool comment = data[nameBegin + 1] == '-';
      const size_t markupEnd = comment ? text_.find("-->", nameBegin + 3) : text_.find("]]>", nameBegin + 8);
      if (markupEnd == std::string_view::npos) break;  // an unterminated comment hides the rest
      position = markupEnd + 3;
      continue;
    }

    const size_t nameLimit = std::min(size, nameBegin + kMaxNameLength);
    size_t nameEnd = nameBegin;
    while (nameEnd < nameLimit && !EndsName(data[nameEnd])) ++nameEnd;
    if (nameEnd == nameBegin || !BeginsElementName(data[nameBegin])) {
      position = begin + 1;  // a declaration or stray "<": look again just after it
      continue;
    }

    Tag tag{};
    tag.begin = static_cast<uint32_t>(begin);
    tag.nameLength = static_cast<uint8_t>(nameEnd - nameBegin);
    tag.nameHead = NameHead(text_.substr(nameBegin, tag.nameLength));
    // Closing tags and bare start tags end right after the name.
    const void* greaterThan =
        nameEnd < size && data[nameEnd] == '>' ? data + nameEnd : std::memchr(data + nameEnd, '>', size - nameEnd);
    if (greaterThan == nullptr) {
      tag.end = static_cast<uint32_t>(size);
      tag.kind = closing ? TagKind::kClose : TagKind::kUnterminated;
    } else {
      const size_t tagEnd = static_cast<const char*>(greaterThan) - data;
      tag.end = static_cast<uint32_t>(tagEnd + 1);
      if (closing) {
        tag.kind = TagKind::kClose;
      } else if ((tagEnd > nameEnd && data[tagEnd - 1] == '/') || data[nameBegin] == '?') {
        tag.kind = TagKind::kEmpty;
      } else {
        tag.kind = TagKind::kStart;
      }
    }
    tags_.push_back(tag);
    Pair(static_cast<uint32_t>(tags_.size() - 1));
    readUpTo_ = tag.end;
    allRead_ = tag.end == size;
    return;
  }
  readUpTo_ = size;
  allRead_ = true;
}

// A closing tag ends the innermost open element when it has that element's name
// and is stepped over otherwise. Elements further out never see it, so a stack
// of open elements finds, for every start tag, the closing tag its own search
// would find.
void ElementScanner::Pair(uint32_t index) const {
  const Tag& tag = tags_[index];
  if (tag.kind == TagKind::kStart || tag.kind == TagKind::kUnterminated) {
    open_.push_back(index);
  } else if (tag.kind == TagKind::kClose && !open_.empty() && HasName(tags_[open_.back()], NameOf(tag), tag.nameHead)) {
    tags_[open_.back()].close = index;
    open_.pop_back();
  }
}

uint32_t ElementScanner::NameHead(std::string_view name) {
  uint32_t head = 0;
  if (name.size() >= 4) {
    std::memcpy(&head, name.data(), 4);
  } else {
    for (size_t i = 0; i < name.size(); ++i) head |= uint32_t{static_cast<unsigned char>(name[i])} << (8 * i);
  }
  return head;
}

bool ElementScanner::HasName(const Tag& tag, std::string_view name, uint32_t nameHead) const {
  if (tag.nameHead != nameHead || tag.nameLength != name.size()) return false;
  // Names are short: a plain loop beats a call to memcmp.
  const char* tagName = text_.data() + NameBegin(tag);
  for (size_t i = 4; i < name.size(); ++i) {
    if (tagName[i] != name[i]) return false;
  }
  return true;
}

// Not stored in the tag, to keep the list small: ">", or the "/" of a "/>" after
// the name (which is what made the tag kEmpty), or the end of the text.
size_t ElementScanner::AttributesEnd(const Tag& tag) const {
  if (tag.kind == TagKind::kUnterminated) return tag.end;
  const size_t greaterThan = tag.end - size_t{1};
  const size_t nameEnd = NameBegin(tag) + tag.nameLength;
  return greaterThan > nameEnd && text_[greaterThan - 1] == '/' ? greaterThan - 1 : greaterThan;
}

// Searches continue where the previous one stopped, so the hint is nearly always
// right; it is checked, and a binary search covers the rest.
size_t ElementScanner::FirstTagAt(size_t position, size_t hint) const {
  while (!allRead_ && (tags_.empty() || tags_.back().begin < position)) ReadNextTag();
  if (hint <= tags_.size() && (hint == tags_.size() || tags_[hint].begin >= position) &&
      (hint == 0 || tags_[hint - 1].begin < position)) {
    return hint;
  }
  auto found =
      std::lower_bound(tags_.begin(), tags_.end(), position, [](const Tag& tag, size_t at) { return tag.begin < at; });
  return static_cast<size_t>(found - tags_.begin());
}

std::optional<Element> ElementScanner::Find(TextSpan span, size_t from, std::string_view name) const {
  return FindFromTag(span, from, from == span.begin ? span.firstTag : 0, name);
}

std::optional<Element> ElementScanner::FindFromTag(TextSpan span, size_t from, size_t hint,
                                                   std::string_view name) const {
  span.end = std::min(span.end, text_.size());
  const uint32_t nameHead = NameHead(name);
  from = std::max(from, span.begin);
  for (size_t i = FirstTagAt(from, hint); HasTag(i) && tags_[i].begin < span.end; ++i) {
    const Tag& tag = tags_[i];
    if (tag.kind == TagKind::kClose) continue;
    if (!name.empty() && !HasName(tag, name, nameHead)) continue;
    return MakeElement(i, span, name.empty());
  }
  return std::nullopt;
}

void ElementScanner::ForEachOf(TextSpan span, const NamedVisitor* visitors, size_t count) const {
  if (count > kMaxVisitors) throw std::invalid_argument("ElementScanner::ForEachOf: too many names");
  span.end = std::min(span.end, text_.size());
  // Per name: its quick test, and where its search would resume (just past its last element).
  struct NameState {
    uint32_t head;
    size_t resume;
  } names[kMaxVisitors];
  for (size_t k = 0; k < count; ++k) names[k] = {NameHead(visitors[k].first), span.begin};
  for (size_t i = FirstTagAt(span.begin, span.firstTag); HasTag(i) && tags_[i].begin < span.end; ++i) {
    if (tags_[i].kind == TagKind::kClose) continue;
    const uint32_t head = tags_[i].nameHead;
    for (size_t k = 0; k < count; ++k) {
      if (names[k].head != head || tags_[i].begin < names[k].resume || !HasName(tags_[i], visitors[k].first, head)) {
        continue;
      }
      const Element element = MakeElement(i, span, false);
      names[k].resume = element.next;
      visitors[k].second(element);
      break;
    }
  }
}

// The first closing tag of any name after the start tag, skipping nested elements whole.
uint32_t ElementScanner::FindAnyClose(size_t startTag, const TextSpan& span) const {
  size_t i = startTag + 1;
  while (HasTag(i) && tags_[i].begin < span.end) {
    const TagKind kind = tags_[i].kind;
    if (kind == TagKind::kClose) return static_cast<uint32_t>(i);
    if (kind == TagKind::kEmpty) {
      ++i;
    } else if (const uint32_t close = CloseOf(i); close == kNoClose) {
      return kNoClose;
    } else {
      i = close + size_t{1};
    }
  }
  return kNoClose;
}

Element ElementScanner::MakeElement(size_t tagIndex, const TextSpan& span, bool anyClose) const {
  const Tag tag = tags_[tagIndex];  // a copy: finding the closing tag may read more tags
  auto clamp = [&span](size_t position) { return std::min(position, span.end); };
  const size_t attributesBegin = clamp(NameBegin(tag) + tag.nameLength);

  Element element;
  element.name = NameOf(tag);
  element.attributes = text_.substr(attributesBegin, clamp(AttributesEnd(tag)) - attributesBegin);
  element.inside = {clamp(tag.end), clamp(tag.end), tagIndex + 1};
  element.next = clamp(tag.end);
  element.nextTag = tagIndex + 1;
  if (tag.kind == TagKind::kStart) {
    const uint32_t close = anyClose ? FindAnyClose(tagIndex, span) : CloseOf(tagIndex);
    if (close != kNoClose && tags_[close].begin < span.end) {
      element.inside.end = tags_[close].begin;
      element.next = clamp(tags_[close].end);
      element.nextTag = close + size_t{1};
    } else {
      element.inside.end = element.next = span.end;
      element.nextTag = tags_.size();  // a hint: checked before use
    }
  }
  element.content = text_.substr(element.inside.begin, element.inside.end - element.inside.begin);
  return element;
}

}  // namespace kx::catalogue
