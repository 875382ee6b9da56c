#include "host/tls_credentials.h"

#include <arpa/inet.h>
#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>
#include <sys/stat.h>

#include <cstdio>
#include <ctime>
#include <gnutls/x509.h>
#include <memory>
#include <stdexcept>
#include <type_traits>

#include "host/gnutls_util.h"
#include "host/private_file.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"

namespace kx::webhost {
namespace {

using tls::Certificate;
using tls::Check;
using tls::Datum;
using tls::NewCertificate;
using tls::Take;

constexpr char kCertificateName[] = "webhost.crt";
constexpr char kKeyName[] = "webhost.key";
constexpr std::time_t kValidity = std::time_t{10} * 365 * 24 * 3600;

struct KeyDeleter {
  void operator()(gnutls_x509_privkey_t key) const { gnutls_x509_privkey_deinit(key); }
};
using PrivateKey = std::unique_ptr<std::remove_pointer_t<gnutls_x509_privkey_t>, KeyDeleter>;

PrivateKey NewKey() {
  gnutls_x509_privkey_t key = nullptr;
  Check(gnutls_x509_privkey_init(&key), "private key");
  return PrivateKey(key);
}

std::string CertificatePem(gnutls_x509_crt_t certificate) {
  gnutls_datum_t out{};
  Check(gnutls_x509_crt_export2(certificate, GNUTLS_X509_FMT_PEM, &out), "certificate export");
  return Take(out);
}

std::string KeyPem(gnutls_x509_privkey_t key) {
  gnutls_datum_t out{};
  Check(gnutls_x509_privkey_export2(key, GNUTLS_X509_FMT_PEM, &out), "key export");
  return Take(out);
}

std::string Fingerprint(gnutls_x509_crt_t certificate) {
  unsigned char digest[32];
  size_t size = sizeof digest;
  Check(gnutls_x509_crt_get_fingerprint(certificate, GNUTLS_DIG_SHA256, digest, &size), "fingerprint");
  std::string text;
  for (size_t i = 0; i < size; ++i) {
    char byte[4];
    std::snprintf(byte, sizeof byte, i == 0 ? "%02X" : ":%02X", digest[i]);
    text += byte;
  }
  return text;
}

// Checks that the texts hold a certificate and a private key, and fingerprints the certificate.
TlsCredentials Parse(std::string certificatePem, std::string keyPem) {
  Certificate certificate = NewCertificate();
  const gnutls_datum_t certificateData = Datum(certificatePem);
  Check(gnutls_x509_crt_import(certificate.get(), &certificateData, GNUTLS_X509_FMT_PEM), "certificate");
  PrivateKey key = NewKey();
  const gnutls_datum_t keyData = Datum(keyPem);
  Check(gnutls_x509_privkey_import(key.get(), &keyData, GNUTLS_X509_FMT_PEM), "private key");
  return {std::move(certificatePem), std::move(keyPem), Fingerprint(certificate.get()), {}};
}

void AddAddress(gnutls_x509_crt_t certificate, const std::string& address) {
  unsigned char bytes[16];
  unsigned size = 0;
  if (::inet_pton(AF_INET, address.c_str(), bytes) == 1) size = 4;
  if (::inet_pton(AF_INET6, address.c_str(), bytes) == 1) size = 16;
  if (size == 0) return;
  Check(gnutls_x509_crt_set_subject_alt_name(certificate, GNUTLS_SAN_IPADDRESS, bytes, size, GNUTLS_FSAN_APPEND),
        "address");
}

TlsCredentials CreateSelfSigned(const std::string& hostName, const std::vector<std::string>& addresses) {
  PrivateKey key = NewKey();
  Check(gnutls_x509_privkey_generate(key.get(), GNUTLS_PK_ECDSA, GNUTLS_CURVE_TO_BITS(GNUTLS_ECC_CURVE_SECP256R1), 0),
        "key generation");
  Certificate certificate = NewCertificate();
  gnutls_x509_crt_t crt = certificate.get();
  unsigned char serial[16];
  Check(gnutls_rnd(GNUTLS_RND_NONCE, serial, sizeof serial), "serial");
  serial[0] &= 0x7f;  // a positive number
  const std::time_t now = std::time(nullptr);
  Check(gnutls_x509_crt_set_version(crt, 3), "version");
  Check(gnutls_x509_crt_set_serial(crt, serial, sizeof serial), "serial");
  Check(gnutls_x509_crt_set_activation_time(crt, now - 3600), "activation time");  // clocks differ a little
  Check(gnutls_x509_crt_set_expiration_time(crt, now + kValidity), "expiration time");
  Check(gnutls_x509_crt_set_dn_by_oid(crt, GNUTLS_OID_X520_COMMON_NAME, 0, hostName.data(),
                                      static_cast<unsigned>(hostName.size())),
        "common name");
  Check(gnutls_x509_crt_set_subject_alt_name(crt, GNUTLS_SAN_DNSNAME, hostName.data(),
                                             static_cast<unsigned>(hostName.size()), GNUTLS_FSAN_APPEND),
        "host name");
  for (const std::string& address : addresses) AddAddress(crt, address);
  Check(gnutls_x509_crt_set_key(crt, key.get()), "public key");
  Check(gnutls_x509_crt_set_basic_constraints(crt, 0, -1), "constraints");
  Check(gnutls_x509_crt_set_key_usage(crt, GNUTLS_KEY_DIGITAL_SIGNATURE), "key usage");
  Check(gnutls_x509_crt_set_key_purpose_oid(crt, GNUTLS_KP_TLS_WWW_SERVER, 0), "key purpose");
  Check(gnutls_x509_crt_sign2(crt, crt, key.get(), GNUTLS_DIG_SHA256, 0), "signature");
  return {CertificatePem(crt), KeyPem(key.get()), Fingerprint(crt), {}};
}

std::string ReadFile(const std::string& path, const char* what) {
  try {
    return tal::ReadWholeFile(path);
  } catch (const std::exception& error) {
    throw std::runtime_error(std::string("cannot read the ") + what + " " + path + ": " + error.what());
  }
}

}  // namespace

TlsCredentials LoadCredentials(const std::string& certificatePath, const std::string& keyPath) {
  try {
    return Parse(ReadFile(certificatePath, "certificate"), ReadFile(keyPath, "key"));
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(certificatePath + ", " + keyPath + ": " + error.what());
  }
}

TlsCredentials LoadOrCreateSelfSigned(const std::string& directory, const std::string& hostName,
                                      const std::vector<std::string>& addresses, bool& created) {
  const std::string certificatePath = tal::JoinPath(directory, kCertificateName);
  const std::string keyPath = tal::JoinPath(directory, kKeyName);
  created = !tal::PathExists(certificatePath) || !tal::PathExists(keyPath);
  if (!created) return LoadCredentials(certificatePath, keyPath);
  tal::CreateDirectories(directory, 0755);
  TlsCredentials credentials = CreateSelfSigned(hostName, addresses);
  WritePrivateFile(keyPath, credentials.keyPem);
  WritePrivateFile(certificatePath, credentials.certificatePem);
  ::chmod(certificatePath.c_str(), 0644);  // the certificate is public
  return credentials;
}

std::string LoadClientCa(const std::string& path) {
  std::string pem = ReadFile(path, "client CA");
  const gnutls_datum_t data = Datum(pem);
  gnutls_x509_crt_t* certificates = nullptr;
  unsigned count = 0;
  const int result = gnutls_x509_crt_list_import2(&certificates, &count, &data, GNUTLS_X509_FMT_PEM, 0);
  for (unsigned i = 0; i < count; ++i) gnutls_x509_crt_deinit(certificates[i]);
  gnutls_free(certificates);
  if (result < 0 || count == 0) throw std::runtime_error(path + ": no CA certificate in it");
  return pem;
}

bool IsLocalOnlyAddress(const std::string& host) { return host == "127.0.0.1" || host == "::1" || host == "localhost"; }

}  // namespace kx::webhost
