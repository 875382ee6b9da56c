#pragma once
// The tolerant element scan of CDF text. There is no XML tree: elements are found
// by name, anywhere in the text, in document order; malformed text never fails,
// it only makes elements end early or run to the end of the text.
//
// Rules, from any position:
//  - Markup: "<!--" runs to the next "-->", "<![CDATA[" to the next "]]>"; a tag
//    whose name does not begin with a letter or "?" is passed over by resuming
//    just after its "<". A comment or CDATA section without its end ends the scan.
//  - A tag name is at most 35 characters and ends at NUL, tab, LF, CR, blank, "/"
//    or ">"; longer names are cut (the rest belongs to the attribute text).
//  - Closing tags and start tags of other names are passed over, resuming after
//    their ">": elements of the sought name are found inside others, at any depth.
//  - A found element's attribute text lies between its name and its ">" (before a
//    "/" of "/>"); with no ">" at all it is the rest of the text. Elements written
//    "<X/>" and processing instructions ("<?X ...?>") have no content.
//  - Otherwise the content runs to the matching closing tag: nested elements are
//    skipped whole (each to its own closing tag, so a nested element of the same
//    name does not end the outer one), closing tags of other names are stepped
//    over, and without a matching closing tag the content is the rest of the text.
//    When any element was asked for (empty name), any closing tag ends it.
//
// The scanner reads the text once into a list of tags and pairs every start tag
// with its closing tag, so each search costs only the tags it passes and a whole
// document read stays linear in the text, whatever the nesting or the number of
// unclosed tags. It reads the text only as far as a search needs: an element is
// read while its text is still in the cache from finding its tags.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace kx::catalogue {

// A part of the scanned text as offsets: the whole text or an element's content.
struct TextSpan {
  size_t begin = 0;
  size_t end = 0;
  size_t firstTag = 0;  // the scanner's hint where its tags begin; any value is safe
};

struct Element {
  std::string_view name;
  std::string_view attributes;
  std::string_view content;
  TextSpan inside;     // where `content` lies, to search it in turn
  size_t next = 0;     // just past the element: where the search for the next one resumes
  size_t nextTag = 0;  // the scanner's hint for `next`
};

class ElementScanner {
 public:
  // The text must outlive the scanner and every Element it returns. Only the
  // first 4 GiB of a text are read. Searches read more of the text on the way,
  // so one scanner is not for several threads at once.
  explicit ElementScanner(std::string_view text);

  std::string_view Text() const { return text_; }
  TextSpan Whole() const { return {0, text_.size()}; }

  // The next element called `name` (any element when empty) that starts at or
  // after `from` inside `span`; nullopt when there is none. `span` is Whole() or
  // an Element's `inside`; `from` is its begin or a found Element's `next`.
  std::optional<Element> Find(TextSpan span, size_t from, std::string_view name) const;
  std::optional<Element> First(TextSpan span, std::string_view name) const {
    return FindFromTag(span, span.begin, span.firstTag, name);
  }
  // The one after `previous`, a result of a search in the same span.
  std::optional<Element> Next(TextSpan span, const Element& previous, std::string_view name) const {
    return FindFromTag(span, previous.next, previous.nextTag, name);
  }

  // Calls visit(const Element&) for each element called `name` in `span`, in order.
  template <class Visit>
  void ForEach(TextSpan span, std::string_view name, Visit&& visit) const {
    for (auto element = First(span, name); element; element = Next(span, *element, name)) visit(*element);
  }

  // ForEach for several distinct, non-empty names in one walk over `span`. Each
  // name gets exactly the elements its own ForEach would; only the calls for
  // different names interleave, in document order. At most kMaxVisitors names:
  // the walk keeps its state on the stack, as readers call it for every package.
  using NamedVisitor = std::pair<std::string_view, std::function<void(const Element&)>>;
  static constexpr size_t kMaxVisitors = 16;
  void ForEachOf(TextSpan span, const NamedVisitor* visitors, size_t count) const;
  template <class Visitors>
  void ForEachOf(TextSpan span, const Visitors& visitors) const {
    ForEachOf(span, std::data(visitors), std::size(visitors));
  }
  void ForEachOf(TextSpan span, std::initializer_list<NamedVisitor> visitors) const {
    ForEachOf(span, std::data(visitors), std::size(visitors));
  }

 private:
  enum class TagKind : uint8_t {
    kStart,         // has content up to its closing tag
    kEmpty,         // "<X/>" or "<?X ...>": no content
    kUnterminated,  // no ">" follows: the last tag of the text
    kClose,
  };
  static constexpr uint32_t kNoClose = UINT32_MAX;

  struct Tag {
    uint32_t begin;             // the "<"
    uint32_t end;               // just past ">", or the end of the text
    uint32_t close = kNoClose;  // kStart and kUnterminated: index of the matching closing tag
    uint32_t nameHead;          // the name's first four characters, zero-padded: a quick first test
    uint8_t nameLength;
    TagKind kind;
  };

  // The tag list grows as searches need it: up to `index`, or up to the closing
  // tag of a start tag. Whether tag `index` exists.
  bool HasTag(size_t index) const { return index < tags_.size() || ReadTagsThrough(index); }
  bool ReadTagsThrough(size_t index) const;
  uint32_t CloseOf(size_t index) const;
  void ReadNextTag() const;
  void Pair(uint32_t index) const;
  size_t NameBegin(const Tag& tag) const { return tag.begin + (tag.kind == TagKind::kClose ? 2 : 1); }
  size_t AttributesEnd(const Tag& tag) const;
  std::string_view NameOf(const Tag& tag) const { return text_.substr(NameBegin(tag), tag.nameLength); }
  static uint32_t NameHead(std::string_view name);
  bool HasName(const Tag& tag, std::string_view name, uint32_t nameHead) const;
  size_t FirstTagAt(size_t position, size_t hint) const;
  std::optional<Element> FindFromTag(TextSpan span, size_t from, size_t hint, std::string_view name) const;
  uint32_t FindAnyClose(size_t startTag, const TextSpan& span) const;
  Element MakeElement(size_t tagIndex, const TextSpan& span, bool anyClose) const;

  std::string_view text_;
  mutable std::vector<Tag> tags_;
  mutable std::vector<uint32_t> open_;  // start tags read and not yet closed, innermost last
  mutable size_t readUpTo_ = 0;         // where reading the next tag begins
  mutable bool allRead_ = false;
};

}  // namespace kx::catalogue
