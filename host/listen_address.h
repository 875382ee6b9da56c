#pragma once
// The socket address a listener binds to.

#include <sys/socket.h>

#include <cstdint>
#include <string>

namespace kx::webhost {

struct ListenAddress {
  sockaddr_storage storage{};
  bool ipv6 = false;
  const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

// A numeric address or a host name ("localhost"); the first address found.
// Throws std::runtime_error.
ListenAddress ResolveListenAddress(const std::string& host, uint16_t port);

}  // namespace kx::webhost
