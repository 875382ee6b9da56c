#include "exchange/lock_record.h"

namespace kx::exchange {
namespace {

constexpr std::string_view kIdKey = "Id=";
constexpr char kHexDigits[] = "0123456789ABCDEF";

bool IsControl(unsigned char c) { return c < 0x20 || c == 0x7f; }

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string Escaped(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\\') {
      escaped += "\\\\";
    } else if (IsControl(byte)) {
      escaped += "\\x";
      escaped += kHexDigits[byte >> 4];
      escaped += kHexDigits[byte & 0xf];
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::optional<std::string> Unescaped(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  for (size_t at = 0; at < text.size(); ++at) {
    if (IsControl(static_cast<unsigned char>(text[at]))) return std::nullopt;
    if (text[at] != '\\') {
      plain += text[at];
    } else if (at + 1 < text.size() && text[at + 1] == '\\') {
      plain += '\\';
      at += 1;
    } else if (at + 3 < text.size() && text[at + 1] == 'x' && HexValue(text[at + 2]) >= 0 &&
               HexValue(text[at + 3]) >= 0 &&
               IsControl(static_cast<unsigned char>(HexValue(text[at + 2]) * 16 + HexValue(text[at + 3])))) {
      // Only what the writer escapes: one ID has one line.
      plain += static_cast<char>(HexValue(text[at + 2]) * 16 + HexValue(text[at + 3]));
      at += 3;
    } else {
      return std::nullopt;
    }
  }
  return plain;
}

std::string CleanHolder(std::string_view holder) {
  std::string cleaned(holder.substr(0, kMaxLockHolderLength));
  for (char& c : cleaned) {
    if (IsControl(static_cast<unsigned char>(c))) c = ' ';
  }
  return cleaned;
}

}  // namespace

std::string LockRecordText(const LockRecord& record) {
  return LockRecordIdLine(record.actionId) + "Holder=" + CleanHolder(record.holder) +
         "\nProcessId=" + std::to_string(record.processId) +
         "\nTime=" + std::to_string(static_cast<long long>(record.time)) + "\n";
}

std::string LockRecordIdLine(std::string_view actionId) { return std::string(kIdKey) + Escaped(actionId) + "\n"; }

std::optional<std::string> LockRecordActionId(std::string_view firstLine) {
  if (!firstLine.empty() && firstLine.back() == '\n') firstLine.remove_suffix(1);
  if (firstLine.substr(0, kIdKey.size()) != kIdKey) return std::nullopt;
  return Unescaped(firstLine.substr(kIdKey.size()));
}

}  // namespace kx::exchange
