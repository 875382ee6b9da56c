#pragma once
// Owners and conversions for the GnuTLS C API, shared by the host's TLS,
// password and client-certificate code.

#include <gnutls/gnutls.h>

#include <gnutls/x509.h>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace kx::webhost::tls {

// Throws std::runtime_error "what: <GnuTLS's reason>" for a negative result.
void Check(int result, const char* what);

struct CertificateDeleter {
  void operator()(gnutls_x509_crt_t certificate) const { gnutls_x509_crt_deinit(certificate); }
};
using Certificate = std::unique_ptr<std::remove_pointer_t<gnutls_x509_crt_t>, CertificateDeleter>;
Certificate NewCertificate();

// A view of `text` as GnuTLS takes its input; `text` must outlive it.
gnutls_datum_t Datum(std::string_view text);
// The bytes GnuTLS allocated, copied out and freed.
std::string Take(gnutls_datum_t& datum);

std::string EncodeBase64(std::string_view bytes);
// Strict: the base64 alphabet with "=" padding only (no blanks or line ends);
// nothing for any other text.
std::optional<std::string> DecodeBase64(std::string_view text);

}  // namespace kx::webhost::tls
