#pragma once
// A stand-in for the local web-server locator on 127.0.0.1: answers each
// connection as the test says and records what it was asked.

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace kx::test {

class LocatorStub {
 public:
  // The answer to the connection with this index (0 first); nullopt keeps the
  // connection open without answering, until the client gives up.
  using Responder = std::function<std::optional<std::string>(int connection)>;

  explicit LocatorStub(Responder responder);
  // The same answer for every connection.
  explicit LocatorStub(const std::string& answer);
  ~LocatorStub();
  LocatorStub(const LocatorStub&) = delete;
  LocatorStub& operator=(const LocatorStub&) = delete;

  uint16_t Port() const { return port_; }
  // The requests received so far, each up to and including its empty line.
  std::vector<std::string> Requests() const;

 private:
  void Serve();
  void Answer(int connection, int index);

  Responder responder_;
  int listener_ = -1;
  uint16_t port_ = 0;
  std::atomic<bool> stopping_{false};
  mutable std::mutex mutex_;
  std::vector<std::string> requests_;
  std::thread thread_;
};

// A loopback port that nothing listens on (bound once, then released).
uint16_t UnusedLoopbackPort();

// The answer of a locator that works.
std::string LocatorAnswer(const std::string& body);

}  // namespace kx::test
