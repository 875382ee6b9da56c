#include "ini/ini_parser.h"

#include <new>
#include <string>
#include <vector>

#include "ini/ini_syntax.h"

// Reading rules. Each pass over a line is linear in its length, and lookups are
// hashed, so any input loads in time linear in its size.
//  - Only a line feed ends a line; one carriage return before it is dropped.
//    All other bytes, binary ones included, are kept as they are.
//  - A line holding a NUL byte is ignored: no setter can produce one, and C
//    strings would silently cut it.
//  - Blanks at the start of a line are ignored; a line then empty is skipped.
//  - A line starting with ';' or '#' is a comment. Comments attach to the next
//    header or key; comments after the last of those are dropped.
//  - "[name]" starts (or continues) section "name"; text after the first ']'
//    is ignored. A header without ']' or with an empty name is ignored, and so
//    are the keys under it up to the next good header: their section is unknown.
//  - "name=value": the name loses its trailing blanks; when a blank precedes
//    the '=', the separator is " = " and one blank after '=' belongs to it. A
//    value that starts and ends with the same quote character ('"' or '\'') is
//    quoted: the quotes are removed and recorded on the key.
//  - Keys before any header belong to the unnamed leading section.
//  - A line without '=' or with an empty name is ignored. A repeated key is
//    ignored: the first value wins, so lines that follow a key (a value written
//    with a line end in it) can never replace what was written before them.
//  - "name Line0001", "name Line0002", ... in unbroken order join into the one
//    key "name". Later pieces are unquoted only when the first piece was. A
//    piece out of order is read as a key of its own, with its full name.

namespace kx::ini {

class Parser {
 public:
  explicit Parser(Document& document) : document_(document) {}

  void ParseLine(std::string_view line) {
    if (line.find('\0') != std::string_view::npos) return;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    while (!line.empty() && IsBlank(line.front())) line.remove_prefix(1);
    if (line.empty()) return;
    if (IsCommentChar(line.front())) {
      pendingComments_.emplace_back(line);
    } else if (line.front() == '[') {
      ParseHeader(line);
    } else {
      ParseKeyLine(line);
    }
  }

 private:
  static constexpr size_t kNoSection = static_cast<size_t>(-1);

  void ParseHeader(std::string_view line) {
    continuing_ = false;
    const size_t close = line.find(']');
    if (close == std::string_view::npos || close == 1) {
      skippingKeys_ = true;
      pendingComments_.clear();
      return;
    }
    skippingKeys_ = false;
    section_ = document_.SectionIndexFor(std::string(line.substr(1, close - 1)));
    TakeComments(document_.sections_[section_].comments);
  }

  void ParseKeyLine(std::string_view line) {
    const size_t equals = line.find('=');
    std::string_view name = line.substr(0, equals == std::string_view::npos ? 0 : equals);
    while (!name.empty() && IsBlank(name.back())) name.remove_suffix(1);
    if (name.empty() || skippingKeys_) {
      pendingComments_.clear();
      continuing_ = false;
      return;
    }
    std::string_view value = line.substr(equals + 1);
    const bool spacedSeparator = IsBlank(line[equals - 1]);
    if (spacedSeparator && !value.empty() && IsBlank(value.front())) value.remove_prefix(1);
    if (section_ == kNoSection) section_ = document_.SectionIndexFor(std::string());

    std::string_view base;
    uint32_t number = 0;
    if (SplitContinuationName(name, base, number)) {
      if (number == 1) {
        continuing_ = StartKey(base, value);
        nextPiece_ = 2;
        return;
      }
      if (continuing_ && number == nextPiece_ && CurrentKey().name == base) {
        AppendPiece(value);
        ++nextPiece_;
        return;
      }
    }
    StartKey(name, value);
    continuing_ = false;
  }

  // False (and the line dropped) when the section has the key already.
  bool StartKey(std::string_view name, std::string_view value) {
    if (document_.FindKey(document_.sections_[section_].name, name) != nullptr) {
      pendingComments_.clear();
      return false;
    }
    Key& key = document_.KeyFor(section_, std::string(name));
    key.quote = 0;
    if (value.size() >= 2 && IsQuoteChar(value.front()) && value.back() == value.front()) {
      key.quote = value.front();
      value = value.substr(1, value.size() - 2);
    }
    key.value.assign(value);
    TakeComments(key.comments);
    keyIndex_ = static_cast<size_t>(&key - document_.sections_[section_].keys.data());
    return true;
  }

  void AppendPiece(std::string_view piece) {
    Key& key = CurrentKey();
    if (key.quote != 0 && piece.size() >= 2 && piece.front() == key.quote && piece.back() == key.quote) {
      piece = piece.substr(1, piece.size() - 2);
    }
    key.value.append(piece);
    TakeComments(key.comments);
  }

  Key& CurrentKey() { return document_.sections_[section_].keys[keyIndex_]; }

  void TakeComments(std::vector<std::string>& into) {
    for (std::string& comment : pendingComments_) into.push_back(std::move(comment));
    pendingComments_.clear();
  }

  Document& document_;
  std::vector<std::string> pendingComments_;
  size_t section_ = kNoSection;
  bool skippingKeys_ = false;
  bool continuing_ = false;  // the last key line was a piece of CurrentKey()
  size_t keyIndex_ = 0;
  uint32_t nextPiece_ = 0;
};

int ParseText(std::string_view text, Document& document) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
    text.remove_prefix(kByteOrderMark.size());
  }
  try {
    Parser parser(document);
    while (!text.empty()) {
      const size_t end = text.find('\n');
      parser.ParseLine(text.substr(0, end));
      text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
  } catch (const std::bad_alloc&) {
    return kErrorNoMemory;
  }
  return kOk;
}

}  // namespace kx::ini
