#pragma once
// How a request says where its body ends: Content-Length or chunked transfer.

#include <microhttpd.h>

#include <cstdint>
#include <optional>

namespace kx::webhost {

// The Content-Length when it is given (digits only).
std::optional<uint64_t> DeclaredLength(MHD_Connection* connection);

// Two different Content-Length headers, or Content-Length beside
// Transfer-Encoding: a message whose end a proxy in front may see elsewhere
// than this server does, so it is refused.
bool HasConflictingFraming(MHD_Connection* connection);

}  // namespace kx::webhost
