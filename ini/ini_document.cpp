#include "ini/ini_document.h"

#include <charconv>
#include <limits>
#include <new>

#include "ini/ini_syntax.h"

namespace kx::ini {
namespace {

std::string KeyIndexName(std::string_view section, std::string_view key) {
  std::string joined;
  joined.reserve(section.size() + 1 + key.size());
  joined.append(section).push_back('\0');  // names never hold NUL, so this is unambiguous
  joined.append(key);
  return joined;
}

// Optional blanks, optional sign, then decimal digits or "0x" and hex digits.
bool ParseInteger(std::string_view text, bool& negative, unsigned long long& magnitude) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  negative = false;
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  if (text.empty()) return false;
  const char* end = text.data() + text.size();
  auto [stop, error] = std::from_chars(text.data(), end, magnitude, base);
  return error == std::errc() && stop == end;
}

}  // namespace

void Document::SetWriteSettings(int32_t maxLineLength, char breakChar, uint32_t options) {
  maxLineLength_ = maxLineLength;
  breakChar_ = breakChar;
  options_ = options;
}

const Section* Document::FindSection(std::string_view section) const {
  auto found = sectionIndex_.find(std::string(section));
  return found == sectionIndex_.end() ? nullptr : &sections_[found->second];
}

const Key* Document::FindKey(std::string_view section, std::string_view key) const {
  auto foundSection = sectionIndex_.find(std::string(section));
  if (foundSection == sectionIndex_.end()) return nullptr;
  auto foundKey = keyIndex_.find(KeyIndexName(section, key));
  if (foundKey == keyIndex_.end()) return nullptr;
  return &sections_[foundSection->second].keys[foundKey->second];
}

bool Document::GetText(std::string_view section, std::string_view key, std::string& value) const {
  const Key* found = FindKey(section, key);
  if (found == nullptr) return false;
  value = found->value;
  return true;
}

bool Document::GetInt32(std::string_view section, std::string_view key, int32_t& value) const {
  const Key* found = FindKey(section, key);
  bool negative = false;
  unsigned long long magnitude = 0;
  if (found == nullptr || !ParseInteger(found->value, negative, magnitude)) return false;
  const unsigned long long limit =
      negative ? 1ULL + std::numeric_limits<int32_t>::max() : std::numeric_limits<int32_t>::max();
  if (magnitude > limit) return false;
  value = static_cast<int32_t>(negative ? -static_cast<long long>(magnitude) : static_cast<long long>(magnitude));
  return true;
}

bool Document::GetUInt32(std::string_view section, std::string_view key, uint32_t& value) const {
  const Key* found = FindKey(section, key);
  bool negative = false;
  unsigned long long magnitude = 0;
  if (found == nullptr || !ParseInteger(found->value, negative, magnitude)) return false;
  if (negative && magnitude != 0) return false;
  if (magnitude > std::numeric_limits<uint32_t>::max()) return false;
  value = static_cast<uint32_t>(magnitude);
  return true;
}

int Document::SetText(std::string_view section, std::string_view key, std::string_view value, char quote) {
  if (!IsValidSectionName(section) || !IsValidKeyName(key)) return kErrorInvalid;
  if (quote != 0 && quote != '"' && quote != '\'') return kErrorInvalid;
  // The value is C text to the file: it ends at a NUL.
  value = value.substr(0, value.find('\0'));
  if (!IsValidValue(value, quote)) return kErrorInvalid;
  try {
    Key& entry = KeyFor(SectionIndexFor(std::string(section)), std::string(key));
    entry.value.assign(value);
    entry.quote = quote;
  } catch (const std::bad_alloc&) {
    return kErrorNoMemory;
  }
  return kOk;
}

int Document::SetInt32(std::string_view section, std::string_view key, int32_t value) {
  return SetText(section, key, std::to_string(value));
}

int Document::SetUInt32(std::string_view section, std::string_view key, uint32_t value) {
  return SetText(section, key, std::to_string(value));
}

int Document::AddComment(std::string_view section, std::string_view key, std::string_view line) {
  if (!IsValidSectionName(section) || !IsValidComment(line)) return kErrorInvalid;
  if (key.empty() && section.empty()) return kErrorInvalid;  // the unnamed section has no header
  if (!key.empty() && !IsValidKeyName(key)) return kErrorInvalid;
  try {
    size_t sectionIndex = SectionIndexFor(std::string(section));
    std::vector<std::string>& comments =
        key.empty() ? sections_[sectionIndex].comments : KeyFor(sectionIndex, std::string(key)).comments;
    comments.emplace_back(line);
  } catch (const std::bad_alloc&) {
    return kErrorNoMemory;
  }
  return kOk;
}

size_t Document::SectionIndexFor(const std::string& name) {
  auto found = sectionIndex_.find(name);
  if (found != sectionIndex_.end()) return found->second;
  Section created;
  created.name = name;
  if (name.empty() && !sections_.empty()) {
    // The unnamed section is always the first one.
    sections_.insert(sections_.begin(), std::move(created));
    RebuildSectionIndex();
    return 0;
  }
  sections_.push_back(std::move(created));
  try {
    sectionIndex_.emplace(name, sections_.size() - 1);
  } catch (...) {
    sections_.pop_back();
    throw;
  }
  return sections_.size() - 1;
}

Key& Document::KeyFor(size_t sectionIndex, const std::string& name) {
  Section& section = sections_[sectionIndex];
  std::string indexName = KeyIndexName(section.name, name);
  auto found = keyIndex_.find(indexName);
  if (found != keyIndex_.end()) return section.keys[found->second];
  Key created;
  created.name = name;
  section.keys.push_back(std::move(created));
  try {
    keyIndex_.emplace(std::move(indexName), section.keys.size() - 1);
  } catch (...) {
    section.keys.pop_back();
    throw;
  }
  return section.keys.back();
}

void Document::RebuildSectionIndex() {
  sectionIndex_.clear();
  for (size_t i = 0; i < sections_.size(); ++i) sectionIndex_.emplace(sections_[i].name, i);
}

}  // namespace kx::ini
