#include "discovery/web_server_locator.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "kx/tal/osdep/posix_io.h"

namespace kx::discovery {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kRequest[] = "GET /locator/SystemWebServer HTTP/1.0\r\nHost: localhost\r\n\r\n";
// A real answer is a few dozen bytes; anything this long is not one.
constexpr size_t kMaxAnswerSize = 8192;

// Digits only, no sign, within [1, maximum]; nullopt otherwise.
std::optional<unsigned long> ParseNumber(std::string_view text, unsigned long maximum) {
  if (text.empty() || text.size() > 10) return std::nullopt;
  unsigned long value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + static_cast<unsigned long>(c - '0');
    if (value > maximum) return std::nullopt;
  }
  if (value == 0) return std::nullopt;
  return value;
}

// The answer split at the empty line after the headers; false while the headers
// are incomplete.
bool SplitAnswer(std::string_view answer, std::string_view& head, std::string_view& body) {
  size_t end = answer.find("\r\n\r\n");
  size_t separator = 4;
  const size_t bareEnd = answer.find("\n\n");
  if (bareEnd < end) {
    end = bareEnd;
    separator = 2;
  }
  if (end == std::string_view::npos) return false;
  head = answer.substr(0, end);
  body = answer.substr(end + separator);
  return true;
}

// Calls `visit` with each line of `text`, without its "\r\n" or "\n".
template <typename Visit>
void ForEachLine(std::string_view text, Visit visit) {
  while (!text.empty()) {
    const size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    visit(line);
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
}

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    if (lower(text[i]) != lower(prefix[i])) return false;
  }
  return true;
}

// The Content-Length header's value, nullopt when absent or malformed.
std::optional<size_t> ContentLength(std::string_view head) {
  std::optional<size_t> length;
  ForEachLine(head, [&](std::string_view line) {
    constexpr std::string_view kName = "content-length:";
    if (length || !StartsWithNoCase(line, kName)) return;
    line.remove_prefix(kName.size());
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    if (line == "0") {
      length = 0;
    } else if (const auto value = ParseNumber(line, kMaxAnswerSize)) {
      length = *value;
    }
  });
  return length;
}

bool IsStatus200(std::string_view head) {
  const std::string_view statusLine = head.substr(0, head.find_first_of("\r\n"));
  if (statusLine.substr(0, 7) != "HTTP/1.") return false;
  const size_t space = statusLine.find(' ');
  if (space == std::string_view::npos) return false;
  const std::string_view rest = statusLine.substr(space + 1);
  return rest.substr(0, 3) == "200" && (rest.size() == 3 || rest[3] == ' ');
}

class Socket {
 public:
  Socket() : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {}
  int fd() const { return fd_.Get(); }

 private:
  tal::osdep::FileDescriptor fd_;
};

// Waits until `events` are ready on `fd` or the deadline passes.
bool WaitReady(int fd, short events, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return false;
    pollfd entry{fd, events, 0};
    const int ready = ::poll(&entry, 1, static_cast<int>(left.count()));
    if (ready > 0) return true;  // errors show in the call that follows
    if (ready == 0 || errno != EINTR) return false;
  }
}

bool Connect(int fd, uint16_t port, Clock::time_point deadline) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return true;
  if (errno != EINPROGRESS && errno != EINTR) return false;
  if (!WaitReady(fd, POLLOUT, deadline)) return false;
  int error = 0;
  socklen_t size = sizeof error;
  return ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

bool SendAll(int fd, std::string_view data, Clock::time_point deadline) {
  while (!data.empty()) {
    const ssize_t sent = ::send(fd, data.data(), data.size(), MSG_NOSIGNAL);
    if (sent > 0) {
      data.remove_prefix(static_cast<size_t>(sent));
    } else if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      if (!WaitReady(fd, POLLOUT, deadline)) return false;
    } else if (sent < 0 && errno != EINTR) {
      return false;
    }
  }
  return true;
}

// True once the headers are in and the body they announce is complete.
bool AnswerComplete(std::string_view answer) {
  std::string_view head, body;
  if (!SplitAnswer(answer, head, body)) return false;
  const std::optional<size_t> length = ContentLength(head);
  return length && body.size() >= *length;
}

// Reads until the locator closes the connection or the announced body is in.
bool Receive(int fd, std::string& answer, Clock::time_point deadline) {
  char buffer[1024];
  while (!AnswerComplete(answer)) {
    if (!WaitReady(fd, POLLIN, deadline)) return false;
    const ssize_t received = ::recv(fd, buffer, sizeof buffer, 0);
    if (received == 0) return true;
    if (received < 0) {
      if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) continue;
      return false;
    }
    answer.append(buffer, static_cast<size_t>(received));
    if (answer.size() > kMaxAnswerSize) return false;
  }
  return true;
}

uint16_t PortFromEnvironment() {
  const char* text = std::getenv("KX_LOCATOR_PORT");
  if (text == nullptr) return WebServerLocator::kDefaultPort;
  const auto port = ParseNumber(text, 65535);
  return port ? static_cast<uint16_t>(*port) : WebServerLocator::kDefaultPort;
}

}  // namespace

WebServerLocator::WebServerLocator() : port_(PortFromEnvironment()) {}

bool WebServerLocator::Query(WebServerLocation& location, int timeoutMs) const {
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  Socket socket;
  if (socket.fd() < 0) return false;
  std::string answer;
  if (!Connect(socket.fd(), port_, deadline) || !SendAll(socket.fd(), kRequest, deadline) ||
      !Receive(socket.fd(), answer, deadline)) {
    return false;
  }
  return ParseAnswer(answer, location);
}

bool WebServerLocator::ParseAnswer(const std::string& answer, WebServerLocation& location) {
  std::string_view head, body;
  if (!SplitAnswer(answer, head, body) || !IsStatus200(head)) return false;
  if (const std::optional<size_t> length = ContentLength(head)) {
    if (body.size() < *length) return false;  // cut short
    body = body.substr(0, *length);
  }

  std::optional<std::string_view> portText, schemeText;
  ForEachLine(body, [&](std::string_view line) {
    if (!portText && line.substr(0, 5) == "port=") portText = line.substr(5);
    if (!schemeText && line.substr(0, 7) == "scheme=") schemeText = line.substr(7);
  });
  if (!portText || !schemeText) return false;
  const auto port = ParseNumber(*portText, 65535);
  if (!port || (*schemeText != "http" && *schemeText != "https")) return false;

  location.port = static_cast<uint16_t>(*port);
  location.scheme = std::string(*schemeText);
  return true;
}

}  // namespace kx::discovery
