#include "host/request_framing.h"

#include <strings.h>

#include <cstring>
#include <string>

namespace kx::webhost {
namespace {

struct FramingHeaders {
  unsigned lengths = 0;
  bool lengthsDiffer = false;
  std::string firstLength;
  bool transferEncoding = false;
};

MHD_Result Collect(void* headers, MHD_ValueKind, const char* name, const char* value) {
  auto& framing = *static_cast<FramingHeaders*>(headers);
  const std::string text = value == nullptr ? std::string() : value;
  if (::strcasecmp(name, MHD_HTTP_HEADER_CONTENT_LENGTH) == 0) {
    if (framing.lengths++ == 0) framing.firstLength = text;
    framing.lengthsDiffer = framing.lengthsDiffer || text != framing.firstLength;
  } else if (::strcasecmp(name, MHD_HTTP_HEADER_TRANSFER_ENCODING) == 0) {
    framing.transferEncoding = true;
  }
  return MHD_YES;
}

}  // namespace

std::optional<uint64_t> DeclaredLength(MHD_Connection* connection) {
  const char* text = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_CONTENT_LENGTH);
  if (text == nullptr || *text == '\0' || std::strspn(text, "0123456789") != std::strlen(text) ||
      std::strlen(text) > 19) {
    return std::nullopt;
  }
  return std::stoull(text);
}

bool HasConflictingFraming(MHD_Connection* connection) {
  FramingHeaders framing;
  MHD_get_connection_values(connection, MHD_HEADER_KIND, &Collect, &framing);
  return framing.lengthsDiffer || (framing.lengths > 0 && framing.transferEncoding);
}

}  // namespace kx::webhost
