#pragma once
// An INI document in memory: sections of keys with values and comments, plus
// the settings that steer how it is written to a file.
//
// Whatever a document holds reads back the same once written (comments only
// when written with kOptionComments): the setters refuse what a file could not
// carry, and a loaded file yields nothing else. Names are compared byte-wise,
// case-sensitively. The section named "" is the unnamed leading section: it is
// always written first and without a header.

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ini/ini_codes.h"

namespace kx::ini {

struct Key {
  std::string name;
  std::string value;
  std::vector<std::string> comments;  // lines before the key: ';' or '#' comments, "" for a blank line
  char quote = 0;                     // '"' or '\'' around the value, 0 for none
};

struct Section {
  std::string name;                   // "" for the unnamed leading section
  std::vector<std::string> comments;  // lines before the header; the unnamed section has none
  std::vector<Key> keys;
};

class Document {
 public:
  // Longest file name a document records; longer paths are refused with kErrorInvalid.
  static constexpr size_t kMaxFileName = 256;

  explicit Document(uint32_t options = 0) : options_(options) {}

  // maxLineLength -1 means unlimited; breakChar 0 means long values are cut
  // wherever the line is full; options replaces the option bits (Option).
  void SetWriteSettings(int32_t maxLineLength, char breakChar, uint32_t options);
  int32_t MaxLineLength() const { return maxLineLength_; }
  char BreakChar() const { return breakChar_; }
  uint32_t Options() const { return options_; }

  // Path and modification stamp of the last successful load or save.
  const std::string& FileName() const { return fileName_; }
  uint32_t Stamp() const { return stamp_; }

  const std::vector<Section>& Sections() const { return sections_; }
  // Comment and blank lines after the last key of a loaded file.
  const std::vector<std::string>& TrailingComments() const { return trailingComments_; }
  const Section* FindSection(std::string_view section) const;
  const Key* FindKey(std::string_view section, std::string_view key) const;

  // Getters return true when the key exists and, for numbers, holds a decimal
  // (or "0x" hexadecimal) number in range; otherwise `value` is left as it was.
  bool GetText(std::string_view section, std::string_view key, std::string& value) const;
  bool GetInt32(std::string_view section, std::string_view key, int32_t& value) const;
  bool GetUInt32(std::string_view section, std::string_view key, uint32_t& value) const;

  // Setters create the section and key when missing and return kOk, or
  // kErrorInvalid for what the file could not carry (see ini_syntax.h: line ends,
  // names read otherwise, an unquoted value wrapped in quotes), or
  // kErrorNoMemory. `quote` is 0 (written without quotes), '"' or '\''. A text
  // value ends at its first NUL, as C text would.
  [[nodiscard]] int SetText(std::string_view section, std::string_view key, std::string_view value, char quote = 0);
  [[nodiscard]] int SetInt32(std::string_view section, std::string_view key, int32_t value);
  [[nodiscard]] int SetUInt32(std::string_view section, std::string_view key, uint32_t value);

  // Appends a comment line (starting with ';' or '#', or "" for a blank line)
  // to a key, or to the section itself when `key` is empty. Comments are
  // written with kOptionComments.
  [[nodiscard]] int AddComment(std::string_view section, std::string_view key, std::string_view line);

  // Replaces the sections with those read from the file at `path` (see ini_file.cpp).
  [[nodiscard]] int Load(const std::string& path);
  // Writes the document to `path`, through a temporary file with kOptionSafeSave.
  [[nodiscard]] int Save(const std::string& path);
  // Writes the document into an open file at its current position; with
  // length 0 the file is emptied first. Refused in safe-save mode.
  [[nodiscard]] int WriteToStream(std::FILE* stream, long length);
  // 1 when the recorded file's modification time differs from the stamp, 0 when
  // not, kErrorNoFileName or kErrorInvalid (file gone) otherwise.
  [[nodiscard]] int ChangedOnDisk() const;

 private:
  friend class Parser;

  // Find-or-create without validation; the parser and the checked setters use them.
  size_t SectionIndexFor(const std::string& name);
  Key& KeyFor(size_t sectionIndex, const std::string& name);
  void RebuildSectionIndex();
  // Remembers `path` and its current modification time after a save.
  void RecordFile(const std::string& path);

  std::vector<Section> sections_;
  std::vector<std::string> trailingComments_;
  std::unordered_map<std::string, size_t> sectionIndex_;  // name -> position in sections_
  std::unordered_map<std::string, size_t> keyIndex_;      // section '\0' key -> position in keys

  uint32_t options_;
  int32_t maxLineLength_ = -1;
  char breakChar_ = 0;
  std::string fileName_;
  uint32_t stamp_ = 0;
};

}  // namespace kx::ini
