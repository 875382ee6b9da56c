#pragma once
// The local web-server locator: tells local clients (the mDNS announcer) on
// which port and with which scheme the web server answers.
//   GET /locator/SystemWebServer  ->  "port=<port>\nscheme=<http or https>\n"
// It listens on the loopback address only.

#include <microhttpd.h>

#include <cstdint>
#include <string>

namespace kx::webhost {

class Locator {
 public:
  Locator(uint16_t locatorPort, uint16_t webServerPort, const std::string& scheme);
  ~Locator() { Stop(); }
  Locator(const Locator&) = delete;
  Locator& operator=(const Locator&) = delete;

  // Throws std::runtime_error when the port is taken.
  void Start();
  void Stop();

 private:
  static MHD_Result Access(void* self, MHD_Connection* connection, const char* url, const char* method,
                           const char* version, const char* data, size_t* size, void** state);

  const uint16_t locatorPort_;
  const std::string answer_;
  MHD_Daemon* daemon_ = nullptr;
};

}  // namespace kx::webhost
