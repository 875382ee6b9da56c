#include "host/locator.h"

#include <cstring>
#include <stdexcept>

#include "host/listen_address.h"
#include "host/text_reply.h"

namespace kx::webhost {

Locator::Locator(uint16_t locatorPort, uint16_t webServerPort, const std::string& scheme)
    : locatorPort_(locatorPort), answer_("port=" + std::to_string(webServerPort) + "\nscheme=" + scheme + "\n") {}

void Locator::Start() {
  const ListenAddress address = ResolveListenAddress("127.0.0.1", locatorPort_);
  daemon_ =
      MHD_start_daemon(MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_AUTO, 0, nullptr, nullptr, &Locator::Access, this,
                       MHD_OPTION_SOCK_ADDR, address.Get(), MHD_OPTION_CONNECTION_TIMEOUT, 10u, MHD_OPTION_END);
  if (daemon_ == nullptr) {
    throw std::runtime_error("cannot listen on 127.0.0.1:" + std::to_string(locatorPort_) +
                             " for the locator (--locator-port 0 turns it off)");
  }
}

void Locator::Stop() {
  if (daemon_ != nullptr) MHD_stop_daemon(daemon_);
  daemon_ = nullptr;
}

MHD_Result Locator::Access(void* self, MHD_Connection* connection, const char* url, const char* method, const char*,
                           const char*, size_t*, void**) {
  if (std::strcmp(method, MHD_HTTP_METHOD_GET) != 0) {
    return QueueTextReply(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "only GET\n", MHD_HTTP_HEADER_ALLOW, "GET");
  }
  if (std::strcmp(url, "/locator/SystemWebServer") != 0) {
    return QueueTextReply(connection, MHD_HTTP_NOT_FOUND, "unknown server\n");
  }
  return QueueTextReply(connection, MHD_HTTP_OK, static_cast<Locator*>(self)->answer_);
}

}  // namespace kx::webhost
