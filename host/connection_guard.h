#pragma once
// Bounds what slow or many connections can take from the server:
// - at most `perClient` connections from one address (loopback, that is the
//   controller itself, excepted);
// - a request's headers must be complete within `headerTimeout` of the
//   connection's start, or of the end of the request before it on the same
//   connection (the server's idle time-out restarts with every byte, so a
//   client sending a byte now and then would otherwise hold it for ever);
// - a body must bring at least kMinBodyRate bytes a second, counted over each
//   period of `headerTimeout`.
// A connection that breaks a time rule is shut down; the server then closes it.

#include <microhttpd.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace kx::webhost {

class ConnectionGuard {
 public:
  static constexpr uint64_t kMinBodyRate = 1024;  // bytes a second

  ConnectionGuard(unsigned perClient, std::chrono::seconds headerTimeout);
  ~ConnectionGuard();
  ConnectionGuard(const ConnectionGuard&) = delete;
  ConnectionGuard& operator=(const ConnectionGuard&) = delete;

  // The server's accept policy: false for an address at its limit.
  bool MayConnect(const sockaddr* address);
  // The server's connection notices.
  void Started(MHD_Connection* connection);
  void Closed(MHD_Connection* connection);
  // A request's headers are complete; a piece of its body came; it is being
  // served (body complete, or answered without one); it was answered.
  void HeadersDone(MHD_Connection* connection);
  void BodyReceived(MHD_Connection* connection, size_t bytes);
  void Serving(MHD_Connection* connection);
  void RequestDone(MHD_Connection* connection);

 private:
  using Clock = std::chrono::steady_clock;
  enum class Phase { kHeaders, kBody, kServing };
  struct Watched {
    int socket = -1;
    std::string address;  // counted; empty for loopback
    Phase phase = Phase::kHeaders;
    Clock::time_point since;  // of the phase, or of the body's current period
    uint64_t bodyBytes = 0;   // in the body's current period
    bool shutDown = false;
  };
  void Watch();
  void Enter(MHD_Connection* connection, Phase phase);

  const unsigned perClient_;
  const Clock::duration headerTimeout_;
  std::mutex mutex_;
  std::condition_variable stopping_;
  bool stop_ = false;
  std::map<MHD_Connection*, Watched> connections_;
  std::map<std::string, unsigned> perAddress_;
  std::thread watcher_;
};

}  // namespace kx::webhost
