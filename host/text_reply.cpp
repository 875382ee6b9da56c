#include "host/text_reply.h"

namespace kx::webhost {

MHD_Result QueueTextReply(MHD_Connection* connection, unsigned status, const std::string& text, const char* headerName,
                          const char* headerValue) {
  MHD_Response* response =
      MHD_create_response_from_buffer(text.size(), const_cast<char*>(text.data()), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) return MHD_NO;
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "text/plain");
  if (headerName != nullptr) MHD_add_response_header(response, headerName, headerValue);
  const MHD_Result queued = MHD_queue_response(connection, status, response);
  MHD_destroy_response(response);
  return queued;
}

}  // namespace kx::webhost
