#include "host/listen_address.h"

#include <netdb.h>

#include <cstring>
#include <stdexcept>

namespace kx::webhost {

ListenAddress ResolveListenAddress(const std::string& host, uint16_t port) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const int failure = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
  if (failure != 0) throw std::runtime_error("cannot resolve " + host + ": " + ::gai_strerror(failure));
  ListenAddress address;
  std::memcpy(&address.storage, found->ai_addr, found->ai_addrlen);
  address.ipv6 = found->ai_family == AF_INET6;
  ::freeaddrinfo(found);
  return address;
}

}  // namespace kx::webhost
