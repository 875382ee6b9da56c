#pragma once
// Client of the local web-server locator: a small HTTP/1.0 service on the local
// host that tells on which port and with which scheme the system web server
// listens.
//
// Request:  "GET /locator/SystemWebServer HTTP/1.0"
// Answer:   status 200, and a body holding the lines "port=<n>" (1 to 65535) and
//           "scheme=<http|https>"; any other answer is a failed query.

#include <cstdint>
#include <string>

namespace kx::discovery {

struct WebServerLocation {
  uint16_t port = 0;
  std::string scheme;
};

class WebServerLocator {
 public:
  // The locator's well-known port; the environment variable KX_LOCATOR_PORT
  // replaces it (for tests).
  static constexpr uint16_t kDefaultPort = 3580;

  // Towards 127.0.0.1 on the well-known port, or the one the environment names.
  WebServerLocator();
  explicit WebServerLocator(uint16_t port) : port_(port) {}

  uint16_t Port() const { return port_; }

  // One query, connection and answer included, within `timeoutMs`. True with
  // `location` filled when the locator answered as above.
  bool Query(WebServerLocation& location, int timeoutMs) const;

  // The answer check on its own: the whole HTTP answer as received.
  static bool ParseAnswer(const std::string& answer, WebServerLocation& location);

 private:
  uint16_t port_;
};

}  // namespace kx::discovery
