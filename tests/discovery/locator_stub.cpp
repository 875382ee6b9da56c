#include "tests/discovery/locator_stub.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace kx::test {
namespace {

constexpr int kPollMs = 20;

int BoundLoopbackSocket(uint16_t& port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) throw std::runtime_error("socket failed");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    ::close(fd);
    throw std::runtime_error("bind failed");
  }
  port = ntohs(address.sin_port);
  return fd;
}

bool Readable(int fd) {
  pollfd entry{fd, POLLIN, 0};
  return ::poll(&entry, 1, kPollMs) > 0;
}

}  // namespace

LocatorStub::LocatorStub(Responder responder) : responder_(std::move(responder)) {
  listener_ = BoundLoopbackSocket(port_);
  if (::listen(listener_, 8) != 0) {
    ::close(listener_);
    throw std::runtime_error("listen failed");
  }
  thread_ = std::thread(&LocatorStub::Serve, this);
}

LocatorStub::LocatorStub(const std::string& answer)
    : LocatorStub([answer](int) { return std::optional<std::string>(answer); }) {}

LocatorStub::~LocatorStub() {
  stopping_ = true;
  thread_.join();
  ::close(listener_);
}

std::vector<std::string> LocatorStub::Requests() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

void LocatorStub::Serve() {
  for (int index = 0; !stopping_;) {
    if (!Readable(listener_)) continue;
    const int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) continue;
    Answer(connection, index++);
    ::close(connection);
  }
}

void LocatorStub::Answer(int connection, int index) {
  std::string request;
  char buffer[512];
  while (!stopping_ && request.find("\r\n\r\n") == std::string::npos) {
    if (!Readable(connection)) continue;
    const ssize_t received = ::recv(connection, buffer, sizeof buffer, 0);
    if (received <= 0) break;
    request.append(buffer, static_cast<size_t>(received));
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(request);
  }
  const std::optional<std::string> answer = responder_(index);
  if (answer) {
    ::send(connection, answer->data(), answer->size(), MSG_NOSIGNAL);
    return;
  }
  while (!stopping_) {  // silent: until the client hangs up
    if (Readable(connection) && ::recv(connection, buffer, sizeof buffer, 0) <= 0) return;
  }
}

uint16_t UnusedLoopbackPort() {
  uint16_t port = 0;
  ::close(BoundLoopbackSocket(port));
  return port;
}

std::string LocatorAnswer(const std::string& body) {
  return "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\n" + body;
}

}  // namespace kx::test
