#include "exchange/action_directory_name.h"

#include <cstdint>

namespace kx::exchange {
namespace {

constexpr size_t kMaxPlainLength = 128;
constexpr size_t kMaxReadablePart = 64;
constexpr size_t kHashDigits = 16;
constexpr char kEncodedMark = '~';

bool IsLetterDigitOrDash(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

bool IsPlain(std::string_view id) {
  if (id.empty() || id.size() > kMaxPlainLength || id == "." || id.find("..") != std::string_view::npos) {
    return false;
  }
  for (const char c : id) {
    if (!IsLetterDigitOrDash(c) && c != '.') return false;
  }
  return true;
}

uint64_t Fnv1a64(std::string_view text) {
  uint64_t hash = 0xcbf29ce484222325ull;
  for (const char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3ull;
  }
  return hash;
}

bool IsLowerHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); }

}  // namespace

bool IsAcceptableActionId(std::string_view actionId) {
  return !actionId.empty() && actionId.size() <= kMaxActionIdLength;
}

std::string ActionDirectoryName(std::string_view actionId) {
  if (IsPlain(actionId)) return std::string(actionId);
  std::string name(1, kEncodedMark);
  for (const char c : actionId) {
    if (name.size() > kMaxReadablePart) break;
    if (IsLetterDigitOrDash(c)) name += c;
  }
  name += '.';
  static constexpr char kDigits[] = "0123456789abcdef";
  const uint64_t hash = Fnv1a64(actionId);
  for (int shift = 60; shift >= 0; shift -= 4) name += kDigits[(hash >> shift) & 0xf];
  return name;
}

bool IsActionDirectoryName(std::string_view name) {
  if (IsPlain(name)) return true;
  if (name.size() < 2 + kHashDigits || name.front() != kEncodedMark) return false;
  const std::string_view readable = name.substr(1, name.size() - 2 - kHashDigits);
  const std::string_view hash = name.substr(name.size() - kHashDigits);
  if (readable.size() > kMaxReadablePart || name[name.size() - kHashDigits - 1] != '.') return false;
  for (const char c : readable) {
    if (!IsLetterDigitOrDash(c)) return false;
  }
  for (const char c : hash) {
    if (!IsLowerHexDigit(c)) return false;
  }
  return true;
}

}  // namespace kx::exchange
