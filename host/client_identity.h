#pragma once
// Who is at the other end of a connection: the client's address, whether it is
// this machine itself, and the common name of a client certificate that chains
// to the configured CA.

#include <microhttpd.h>

#include "host/authenticator.h"

namespace kx::webhost {

// `tls`: the server speaks HTTPS; `clientCertificates`: it asked for client
// certificates (the CA's). The Authorization header is filled in as well.
Caller IdentifyCaller(MHD_Connection* connection, bool tls, bool clientCertificates);

}  // namespace kx::webhost
