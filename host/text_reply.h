#pragma once
// A short plain-text answer of the host itself (errors, the locator).

#include <microhttpd.h>

#include <string>

namespace kx::webhost {

// Queues `text` with the status; an optional extra header (e.g. "Allow").
MHD_Result QueueTextReply(MHD_Connection* connection, unsigned status, const std::string& text,
                          const char* headerName = nullptr, const char* headerValue = nullptr);

}  // namespace kx::webhost
