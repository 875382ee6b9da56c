#include "host/password_hash.h"

#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>

#include <stdexcept>

#include "host/gnutls_util.h"

namespace kx::webhost {
namespace {

constexpr char kScheme[] = "pbkdf2-sha256";
constexpr size_t kSaltBytes = 16;
constexpr size_t kDigestBytes = 32;
constexpr uint32_t kMostRounds = 100000000;

std::string Derive(std::string_view password, std::string_view salt, uint32_t rounds) {
  const gnutls_datum_t key = tls::Datum(password);
  const gnutls_datum_t saltDatum = tls::Datum(salt);
  std::string digest(kDigestBytes, '\0');
  tls::Check(gnutls_pbkdf2(GNUTLS_MAC_SHA256, &key, &saltDatum, rounds, digest.data(), digest.size()), "PBKDF2");
  return digest;
}

std::optional<uint32_t> ParseRounds(std::string_view text) {
  if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string_view::npos) {
    return std::nullopt;
  }
  const uint32_t rounds = static_cast<uint32_t>(std::stoul(std::string(text)));
  if (rounds < kPasswordRounds || rounds > kMostRounds) return std::nullopt;
  return rounds;
}

}  // namespace

PasswordHash HashPassword(std::string_view password, uint32_t rounds) {
  std::string salt(kSaltBytes, '\0');
  tls::Check(gnutls_rnd(GNUTLS_RND_NONCE, salt.data(), salt.size()), "salt");
  std::string digest = Derive(password, salt, rounds);
  return {rounds, std::move(salt), std::move(digest)};
}

bool PasswordMatches(const PasswordHash& hash, std::string_view password) {
  const std::string digest = Derive(password, hash.salt, hash.rounds);
  return digest.size() == hash.digest.size() && gnutls_memcmp(digest.data(), hash.digest.data(), digest.size()) == 0;
}

void SpendPasswordCheckTime(std::string_view password) {
  const PasswordHash nobody{kPasswordRounds, std::string(kSaltBytes, '\0'), std::string(kDigestBytes, '\0')};
  static_cast<void>(PasswordMatches(nobody, password));
}

std::string FormatPasswordHash(const PasswordHash& hash) {
  return std::string(kScheme) + ":" + std::to_string(hash.rounds) + ":" + tls::EncodeBase64(hash.salt) + ":" +
         tls::EncodeBase64(hash.digest);
}

std::optional<PasswordHash> ParsePasswordHash(std::string_view text) {
  std::string_view fields[4];
  for (size_t i = 0; i < 4; ++i) {
    const size_t colon = text.find(':');
    if ((colon == std::string_view::npos) != (i == 3)) return std::nullopt;
    fields[i] = text.substr(0, colon);
    text = colon == std::string_view::npos ? std::string_view() : text.substr(colon + 1);
  }
  if (fields[0] != kScheme) return std::nullopt;
  const std::optional<uint32_t> rounds = ParseRounds(fields[1]);
  std::optional<std::string> salt = tls::DecodeBase64(fields[2]);
  std::optional<std::string> digest = tls::DecodeBase64(fields[3]);
  if (!rounds || !salt || salt->empty() || !digest || digest->size() != kDigestBytes) return std::nullopt;
  return PasswordHash{*rounds, std::move(*salt), std::move(*digest)};
}

}  // namespace kx::webhost
