#pragma once
// A minimal HTTP/1.1 client for the host tests: raw bytes out, one answer in.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kx::test {

struct HttpAnswer {
  int status = 0;                              // 0: the connection closed without an answer
  std::map<std::string, std::string> headers;  // names in lower case
  std::string body;
};

// Sends `request` as it is on a new connection to `host` (an IPv4 address) and
// reads until the server closes it (requests carry "Connection: close"). Gives
// up after 20 seconds.
HttpAnswer Exchange(uint16_t port, const std::string& request, const char* host = "127.0.0.1");

// "GET <target>" or "POST <target>" with the body and its Content-Type.
HttpAnswer Get(uint16_t port, const std::string& target);
HttpAnswer Post(uint16_t port, const std::string& target, const std::string& contentType, const std::string& body);

struct FormPart {
  std::string name;
  std::string content;
  std::optional<std::string> fileName = std::nullopt;  // present: a file part
};
// A multipart/form-data body with the boundary "kx-test-boundary".
std::string MultipartBody(const std::vector<FormPart>& parts);
extern const char kMultipartType[];

// A connected socket to host:port, for tests that send by hand; from the
// `source` address when given (127.0.0.2 is a client of the network to the host).
int Connect(uint16_t port, const char* host = "127.0.0.1", const char* source = nullptr);

}  // namespace kx::test
