#include "host/client_identity.h"

#include <arpa/inet.h>
#include <gnutls/gnutls.h>
#include <netinet/in.h>

#include <cstring>
#include <gnutls/x509.h>

#include "host/gnutls_util.h"
#include "host/users_file.h"

namespace kx::webhost {
namespace {

// The common name of the peer's certificate when it chains to the trusted CA
// and may serve a TLS client; nothing otherwise (none sent included).
std::optional<std::string> VerifiedCertificateName(MHD_Connection* connection) {
  const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_GNUTLS_SESSION);
  if (info == nullptr || info->tls_session == nullptr) return std::nullopt;
  const auto session = static_cast<gnutls_session_t>(info->tls_session);
  gnutls_typed_vdata_st purpose{GNUTLS_DT_KEY_PURPOSE_OID,
                                reinterpret_cast<unsigned char*>(const_cast<char*>(GNUTLS_KP_TLS_WWW_CLIENT)), 0};
  unsigned status = 0;
  if (gnutls_certificate_verify_peers(session, &purpose, 1, &status) < 0 || status != 0) return std::nullopt;
  unsigned count = 0;
  const gnutls_datum_t* chain = gnutls_certificate_get_peers(session, &count);
  if (chain == nullptr || count == 0) return std::nullopt;
  tls::Certificate certificate = tls::NewCertificate();
  if (gnutls_x509_crt_import(certificate.get(), &chain[0], GNUTLS_X509_FMT_DER) < 0) return std::nullopt;
  char name[256] = {};
  size_t size = sizeof name - 1;
  if (gnutls_x509_crt_get_dn_by_oid(certificate.get(), GNUTLS_OID_X520_COMMON_NAME, 0, 0, name, &size) < 0) {
    return std::nullopt;
  }
  const std::string commonName(name, size);
  if (!IsValidUserName(commonName)) return std::nullopt;
  return commonName;
}

}  // namespace

ClientAddress AddressOf(const sockaddr* address) {
  ClientAddress client;
  char text[INET6_ADDRSTRLEN] = {};
  if (address->sa_family == AF_INET) {
    const in_addr ip = reinterpret_cast<const sockaddr_in*>(address)->sin_addr;
    ::inet_ntop(AF_INET, &ip, text, sizeof text);
    client.loopback = ntohl(ip.s_addr) == INADDR_LOOPBACK;
    client.text = client.limiterKey = text;
    return client;
  }
  if (address->sa_family != AF_INET6) return client;
  const in6_addr ip = reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr;
  if (IN6_IS_ADDR_V4MAPPED(&ip)) {
    sockaddr_in mapped{};
    mapped.sin_family = AF_INET;
    std::memcpy(&mapped.sin_addr, &ip.s6_addr[12], 4);
    return AddressOf(reinterpret_cast<const sockaddr*>(&mapped));
  }
  ::inet_ntop(AF_INET6, &ip, text, sizeof text);
  client.text = text;
  client.loopback = IN6_IS_ADDR_LOOPBACK(&ip);
  // One network's hosts share a /64: counted together, they cannot dodge the
  // failure limit by taking new addresses.
  in6_addr network = ip;
  std::memset(&network.s6_addr[8], 0, 8);
  ::inet_ntop(AF_INET6, &network, text, sizeof text);
  client.limiterKey = std::string(text) + "/64";
  return client;
}

Caller IdentifyCaller(MHD_Connection* connection, bool tls, bool clientCertificates) {
  Caller caller;
  caller.tls = tls;
  const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
  if (info != nullptr && info->client_addr != nullptr) {
    ClientAddress address = AddressOf(info->client_addr);
    caller.address = std::move(address.text);
    caller.limiterKey = std::move(address.limiterKey);
    caller.loopback = address.loopback;
  }
  if (tls && clientCertificates) caller.certificateUser = VerifiedCertificateName(connection);
  caller.authorization = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_AUTHORIZATION);
  return caller;
}

}  // namespace kx::webhost
