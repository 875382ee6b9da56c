#include "tests/host/http_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cctype>
#include <stdexcept>

namespace kx::test {

const char kMultipartType[] = "multipart/form-data; boundary=kx-test-boundary";

namespace {

HttpAnswer Parse(const std::string& text) {
  HttpAnswer answer;
  const size_t headerEnd = text.find("\r\n\r\n");
  if (text.rfind("HTTP/1.", 0) != 0 || headerEnd == std::string::npos) return answer;
  answer.status = std::stoi(text.substr(9, 3));
  size_t line = text.find("\r\n") + 2;
  while (line < headerEnd) {
    const size_t end = text.find("\r\n", line);
    const std::string header = text.substr(line, end - line);
    const size_t colon = header.find(':');
    std::string name = header.substr(0, colon);
    for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    answer.headers[name] = header.substr(header.find_first_not_of(' ', colon + 1));
    line = end + 2;
  }
  answer.body = text.substr(headerEnd + 4);
  return answer;
}

}  // namespace

int Connect(uint16_t port, const char* host, const char* source) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (source != nullptr) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    ::inet_pton(AF_INET, source, &local.sin_addr);
    ::bind(socket, reinterpret_cast<sockaddr*>(&local), sizeof local);
  }
  timeval timeout{20, 0};
  ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  ::inet_pton(AF_INET, host, &address.sin_addr);
  if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    ::close(socket);
    throw std::runtime_error("cannot connect to port " + std::to_string(port));
  }
  return socket;
}

HttpAnswer Exchange(uint16_t port, const std::string& request, const char* host) {
  const int socket = Connect(port, host);
  // The server may answer and close early (a body it refuses): stop sending then.
  for (size_t sent = 0; sent < request.size();) {
    const ssize_t n = ::send(socket, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) break;
    sent += static_cast<size_t>(n);
  }
  std::string received;
  char buffer[65536];
  ssize_t n = 0;
  while ((n = ::recv(socket, buffer, sizeof buffer, 0)) > 0) received.append(buffer, static_cast<size_t>(n));
  ::close(socket);
  return Parse(received);
}

HttpAnswer Get(uint16_t port, const std::string& target) {
  return Exchange(port, "GET " + target + " HTTP/1.1\r\nHost: test\r\nConnection: close\r\n\r\n");
}

HttpAnswer Post(uint16_t port, const std::string& target, const std::string& contentType, const std::string& body) {
  return Exchange(port, "POST " + target + " HTTP/1.1\r\nHost: test\r\nConnection: close\r\nContent-Type: " +
                            contentType + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
}

std::string MultipartBody(const std::vector<FormPart>& parts) {
  std::string body;
  for (const FormPart& part : parts) {
    body += "--kx-test-boundary\r\nContent-Disposition: form-data; name=\"" + part.name + "\"";
    if (part.fileName) body += "; filename=\"" + *part.fileName + "\"\r\nContent-Type: application/xml";
    body += "\r\n\r\n" + part.content + "\r\n";
  }
  return body + "--kx-test-boundary--\r\n";
}

}  // namespace kx::test
