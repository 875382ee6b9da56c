#include "ini/ini_parser.h"

#include <new>
#include <string>
#include <vector>

#include "ini/ini_syntax.h"

// Reading rules. Each pass over a line is linear in its length, and lookups are
// hashed, so any input loads in time linear in its size. Nothing is read that a
// setter would refuse, so whatever is loaded reads back the same once written.
//  - A line ends at a line feed, a carriage return, or the two together. All
//    other bytes, binary ones included, are kept as they are.
//  - A line holding a NUL byte is ignored: no setter can produce one, and C
//    strings would silently cut it.
//  - A byte-order mark at the start of the text is no part of any line. Blanks
//    and byte-order marks at the start of a line are ignored.
//  - Empty lines and lines starting with ';' or '#' go with the next header or
//    key, or else to the end of the document. The empty line that the writer
//    puts between sections is dropped again.
//  - "[name]" starts (or continues) section "name"; text after the first ']'
//    is ignored. A header without ']' or with an empty name is ignored, and so
//    are the keys under it up to the next good header: their section is unknown.
//  - "name=value": the name loses its trailing blanks; when a blank precedes
//    the '=', the separator is " = " and one blank after '=' belongs to it.
//    Keys before any header belong to the unnamed leading section.
//  - A line without '=', or whose name no setter would take, is ignored. A
//    repeated key is ignored: the first value wins.
//  - "name Line0001", "name Line0002", ... in unbroken order join into the one
//    key "name". A piece that does not continue the key just read starts key
//    "name", unless the section has it already.
//  - A value is quoted when each of its pieces (a whole line's value being one)
//    is wrapped in the same quote character ('"' or '\''); each piece loses its
//    quotes. Otherwise the pieces are joined as they are, and the value is
//    quoted when the joined text is wrapped in a quote character.

namespace kx::ini {

class Parser {
 public:
  explicit Parser(Document& document) : document_(document) {}

  void ParseLine(std::string_view line) {
    if (line.find('\0') != std::string_view::npos) return;
    line = SkipBlanksAndMarks(line);
    if (line.empty() || IsCommentChar(line.front())) {
      pendingComments_.emplace_back(line);
    } else if (line.front() == '[') {
      ParseHeader(line);
    } else {
      ParseKeyLine(line);
    }
  }

  void Finish() {
    FinishKey();
    TakeComments(document_.trailingComments_);
  }

 private:
  static constexpr size_t kNoSection = static_cast<size_t>(-1);

  static std::string_view SkipBlanksAndMarks(std::string_view line) {
    for (;;) {
      if (!line.empty() && IsBlank(line.front())) {
        line.remove_prefix(1);
      } else if (line.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        line.remove_prefix(kByteOrderMark.size());
      } else {
        return line;
      }
    }
  }

  void ParseHeader(std::string_view line) {
    FinishKey();
    const size_t close = line.find(']');
    skippingKeys_ = close == std::string_view::npos || close == 1;
    if (skippingKeys_) return;
    if (!document_.sections_.empty() && !pendingComments_.empty() && pendingComments_.front().empty()) {
      pendingComments_.erase(pendingComments_.begin());
    }
    section_ = document_.SectionIndexFor(std::string(line.substr(1, close - 1)));
    TakeComments(document_.sections_[section_].comments);
  }

  void ParseKeyLine(std::string_view line) {
    const size_t equals = line.find('=');
    std::string_view name = line.substr(0, equals == std::string_view::npos ? 0 : equals);
    while (!name.empty() && IsBlank(name.back())) name.remove_suffix(1);
    std::string_view value;
    if (!name.empty()) {
      value = line.substr(equals + 1);
      const bool spacedSeparator = IsBlank(line[equals - 1]);
      if (spacedSeparator && !value.empty() && IsBlank(value.front())) value.remove_prefix(1);
    }

    std::string_view base;
    uint32_t number = 0;
    const bool isPiece = SplitContinuationName(name, base, number);
    if (isPiece && keyOpen_ && number == nextPiece_ && CurrentKey().name == base) {
      AppendPiece(value);
      ++nextPiece_;
      return;
    }
    FinishKey();
    const std::string_view keyName = isPiece ? base : name;
    if (skippingKeys_ || !IsValidKeyName(keyName)) return;
    const std::string_view sectionName =
        section_ == kNoSection ? std::string_view() : std::string_view(document_.sections_[section_].name);
    if (document_.FindKey(sectionName, keyName) != nullptr) return;
    if (section_ == kNoSection) section_ = document_.SectionIndexFor(std::string());
    StartKey(keyName, value);
    nextPiece_ = isPiece ? number + 1 : 0;  // 0: no piece continues a whole line
  }

  void StartKey(std::string_view name, std::string_view value) {
    Key& key = document_.KeyFor(section_, std::string(name));
    TakeComments(key.comments);
    keyIndex_ = static_cast<size_t>(&key - document_.sections_[section_].keys.data());
    keyOpen_ = true;
    raw_.assign(value);
    allWrapped_ = LooksQuoted(value);
    quote_ = allWrapped_ ? value.front() : '\0';
    if (allWrapped_) stripped_.assign(value.substr(1, value.size() - 2));
  }

  void AppendPiece(std::string_view piece) {
    raw_.append(piece);
    allWrapped_ = allWrapped_ && IsWrappedIn(piece, quote_);
    if (allWrapped_) stripped_.append(piece.substr(1, piece.size() - 2));
    TakeComments(CurrentKey().comments);
  }

  // The pieces read are complete: the key gets its value and quote.
  void FinishKey() {
    if (!keyOpen_) return;
    keyOpen_ = false;
    Key& key = CurrentKey();
    if (allWrapped_) {
      key.quote = quote_;
      key.value.swap(stripped_);
    } else if (LooksQuoted(raw_)) {
      key.quote = raw_.front();
      key.value.assign(raw_, 1, raw_.size() - 2);
    } else {
      key.quote = 0;
      key.value.swap(raw_);
    }
    raw_.clear();
    stripped_.clear();
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

  // The key being read, until a line shows that no more of its pieces follow.
  bool keyOpen_ = false;
  size_t keyIndex_ = 0;
  uint32_t nextPiece_ = 0;
  std::string raw_;       // its pieces as they stand
  std::string stripped_;  // its pieces without their quotes, while all are wrapped
  bool allWrapped_ = false;
  char quote_ = 0;
};

int ParseText(std::string_view text, Document& document) {
  // The file's own mark is no line: a file holding only the mark holds nothing.
  if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark) text.remove_prefix(kByteOrderMark.size());
  try {
    Parser parser(document);
    while (!text.empty()) {
      const size_t end = text.find_first_of("\r\n");
      parser.ParseLine(text.substr(0, end));
      if (end == std::string_view::npos) break;
      const bool pair = text[end] == '\r' && end + 1 < text.size() && text[end + 1] == '\n';
      text.remove_prefix(end + (pair ? 2 : 1));
    }
    parser.Finish();
  } catch (const std::bad_alloc&) {
    return kErrorNoMemory;
  }
  return kOk;
}

}  // namespace kx::ini
