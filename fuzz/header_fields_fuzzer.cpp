// Fuzz target for the host's small request parsers: header values
// (Content-Type, Content-Disposition), urlencoded forms, byte ranges and the
// Basic Authorization header. The first byte picks the parser.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/basic_credentials.h"
#include "host/byte_range.h"
#include "host/header_value.h"
#include "host/url_encoded_form.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 4) {
    case 0:
      if (const auto value = kx::webhost::ParseHeaderValue(text)) Require(!value->token.empty());
      break;
    case 1: {
      std::vector<kx::webruntime::FormField> fields;
      kx::webhost::ParseUrlEncoded(text, fields);
      for (const auto& field : fields) Require(field.name.size() + field.value.size() <= text.size());
      break;
    }
    case 2: {
      const uint64_t fileSize = text.size() * 977u;
      const kx::webhost::ByteRange range = kx::webhost::ParseByteRange(text.c_str(), fileSize);
      if (range.kind == kx::webhost::ByteRange::Kind::kPart)
        Require(range.first <= range.last && range.last < fileSize);
      break;
    }
    default: {
      const kx::webhost::Authorization authorization = kx::webhost::ParseAuthorization(text);
      if (authorization.form == kx::webhost::Authorization::Form::kBasic) Require(!authorization.user.empty());
      break;
    }
  }
  return 0;
}
