#include "host/url_encoded_form.h"

#include <string>

namespace kx::webhost {
namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string Decode(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '+') {
      decoded += ' ';
    } else if (text[i] == '%' && i + 2 < text.size() && HexDigit(text[i + 1]) >= 0 && HexDigit(text[i + 2]) >= 0) {
      decoded += static_cast<char>(HexDigit(text[i + 1]) * 16 + HexDigit(text[i + 2]));
      i += 2;
    } else {
      decoded += text[i];
    }
  }
  return decoded;
}

}  // namespace

void ParseUrlEncoded(std::string_view text, std::vector<webruntime::FormField>& fields) {
  while (!text.empty()) {
    const size_t end = text.find('&');
    const std::string_view piece = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    if (piece.empty()) continue;
    const size_t equals = piece.find('=');
    fields.push_back({Decode(piece.substr(0, equals)),
                      equals == std::string_view::npos ? std::string() : Decode(piece.substr(equals + 1))});
  }
}

}  // namespace kx::webhost
