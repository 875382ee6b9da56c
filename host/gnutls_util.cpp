#include "host/gnutls_util.h"

#include <stdexcept>

namespace kx::webhost::tls {

void Check(int result, const char* what) {
  if (result < 0) throw std::runtime_error(std::string(what) + ": " + gnutls_strerror(result));
}

Certificate NewCertificate() {
  gnutls_x509_crt_t certificate = nullptr;
  Check(gnutls_x509_crt_init(&certificate), "certificate");
  return Certificate(certificate);
}

gnutls_datum_t Datum(std::string_view text) {
  return {reinterpret_cast<unsigned char*>(const_cast<char*>(text.data())), static_cast<unsigned>(text.size())};
}

std::string Take(gnutls_datum_t& datum) {
  std::string bytes(reinterpret_cast<const char*>(datum.data), datum.size);
  gnutls_free(datum.data);
  datum = {};
  return bytes;
}

std::string EncodeBase64(std::string_view bytes) {
  const gnutls_datum_t input = Datum(bytes);
  gnutls_datum_t output{};
  Check(gnutls_base64_encode2(&input, &output), "base64");
  return Take(output);
}

std::optional<std::string> DecodeBase64(std::string_view text) {
  static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const size_t padding = text.find('=');
  const std::string_view body = text.substr(0, padding);
  const std::string_view tail = padding == std::string_view::npos ? std::string_view() : text.substr(padding);
  if (text.empty() || text.size() % 4 != 0 || body.find_first_not_of(kAlphabet) != std::string_view::npos ||
      tail.size() > 2 || tail.find_first_not_of('=') != std::string_view::npos) {
    return std::nullopt;
  }
  const gnutls_datum_t input = Datum(text);
  gnutls_datum_t output{};
  if (gnutls_base64_decode2(&input, &output) < 0) return std::nullopt;
  return Take(output);
}

}  // namespace kx::webhost::tls
