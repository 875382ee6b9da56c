#pragma once
// The certificate and key kx-webhost serves HTTPS with: given as files, or made
// once, self-signed, and kept below the system root for every later start.

#include <string>
#include <vector>

namespace kx::webhost {

struct TlsCredentials {
  std::string certificatePem;
  std::string keyPem;
  std::string fingerprint;  // SHA-256 of the certificate, "AB:CD:…"
  std::string clientCaPem;  // set: client certificates are asked for, and trusted when they chain to these
};

// The two PEM files as given. Throws std::runtime_error when either cannot be
// read or they do not hold a certificate and its private key.
TlsCredentials LoadCredentials(const std::string& certificatePath, const std::string& keyPath);

// "webhost.crt" and "webhost.key" (mode 0600) in `directory`: loaded when both
// exist, else made: ECDSA P-256, valid for 10 years, the host name as common
// name and subject alternative name with `addresses` (IPv4 or IPv6 text) beside
// it. `created` tells which. Throws std::runtime_error.
TlsCredentials LoadOrCreateSelfSigned(const std::string& directory, const std::string& hostName,
                                      const std::vector<std::string>& addresses, bool& created);

// The PEM file of the CA (or CAs) that client certificates must chain to.
// Throws std::runtime_error when it cannot be read or holds no certificate.
std::string LoadClientCa(const std::string& path);

// True for the addresses only this machine can reach the host on: 127.0.0.1,
// ::1 and "localhost". Any other address (127.0.0.2 included) is the network's.
bool IsLocalOnlyAddress(const std::string& host);

}  // namespace kx::webhost
