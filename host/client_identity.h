#pragma once
// Who is at the other end of a connection: the client's address, whether it is
// this machine itself, and the common name of a client certificate that chains
// to the configured CA.

#include <microhttpd.h>
#include <sys/socket.h>

#include <string>

#include "host/authenticator.h"

namespace kx::webhost {

struct ClientAddress {
  std::string text;        // IPv4 for an IPv4-mapped IPv6 address
  std::string limiterKey;  // the address, or for IPv6 its /64
  bool loopback = false;   // 127.0.0.1 or ::1 only
};
ClientAddress AddressOf(const sockaddr* address);

// `tls`: the server speaks HTTPS; `clientCertificates`: it asked for client
// certificates (the CA's). The Authorization header is filled in as well.
Caller IdentifyCaller(MHD_Connection* connection, bool tls, bool clientCertificates);

}  // namespace kx::webhost
