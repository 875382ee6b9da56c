#include "host/connection_guard.h"

#include <sys/socket.h>

#include "host/client_identity.h"

namespace kx::webhost {
namespace {

constexpr std::chrono::milliseconds kWatchInterval{250};

}  // namespace

ConnectionGuard::ConnectionGuard(unsigned perClient, std::chrono::seconds headerTimeout)
    : perClient_(perClient), headerTimeout_(headerTimeout), watcher_([this] { Watch(); }) {}

ConnectionGuard::~ConnectionGuard() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  stopping_.notify_all();
  watcher_.join();
}

bool ConnectionGuard::MayConnect(const sockaddr* address) {
  const ClientAddress client = AddressOf(address);
  if (client.loopback) return true;
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = perAddress_.find(client.limiterKey);
  return found == perAddress_.end() || found->second < perClient_;
}

void ConnectionGuard::Started(MHD_Connection* connection) {
  Watched watched;
  watched.since = Clock::now();
  if (const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)) {
    watched.socket = info->connect_fd;
  }
  if (const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS)) {
    const ClientAddress client = AddressOf(info->client_addr);
    if (!client.loopback) watched.address = client.limiterKey;
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!watched.address.empty()) ++perAddress_[watched.address];
  connections_[connection] = std::move(watched);
}

// The server calls this before it closes the socket, so the watcher, holding
// the same lock, never shuts down a socket number that was handed on.
void ConnectionGuard::Closed(MHD_Connection* connection) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = connections_.find(connection);
  if (found == connections_.end()) return;
  const std::string& address = found->second.address;
  if (!address.empty() && --perAddress_[address] == 0) perAddress_.erase(address);
  connections_.erase(found);
}

void ConnectionGuard::Enter(MHD_Connection* connection, Phase phase) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = connections_.find(connection);
  if (found == connections_.end()) return;
  found->second.phase = phase;
  found->second.since = Clock::now();
  found->second.bodyBytes = 0;
}

void ConnectionGuard::HeadersDone(MHD_Connection* connection) { Enter(connection, Phase::kBody); }
void ConnectionGuard::Serving(MHD_Connection* connection) { Enter(connection, Phase::kServing); }
void ConnectionGuard::RequestDone(MHD_Connection* connection) { Enter(connection, Phase::kHeaders); }

void ConnectionGuard::BodyReceived(MHD_Connection* connection, size_t bytes) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = connections_.find(connection);
  if (found != connections_.end()) found->second.bodyBytes += bytes;
}

void ConnectionGuard::Watch() {
  const auto periodSeconds = std::chrono::duration_cast<std::chrono::seconds>(headerTimeout_).count();
  const uint64_t minPeriodBytes = kMinBodyRate * static_cast<uint64_t>(periodSeconds);
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stopping_.wait_for(lock, kWatchInterval, [&] { return stop_; })) {
    const Clock::time_point now = Clock::now();
    for (auto& [connection, watched] : connections_) {
      if (watched.shutDown || watched.phase == Phase::kServing || now - watched.since < headerTimeout_) continue;
      if (watched.phase == Phase::kBody && watched.bodyBytes >= minPeriodBytes) {
        watched.since = now;  // fast enough: the next period begins
        watched.bodyBytes = 0;
        continue;
      }
      ::shutdown(watched.socket, SHUT_RDWR);
      watched.shutDown = true;
    }
  }
}

}  // namespace kx::webhost
