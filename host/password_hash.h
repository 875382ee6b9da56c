#pragma once
// Salted slow password hashes: PBKDF2 with HMAC-SHA-256 (GnuTLS), written as
// "pbkdf2-sha256:ROUNDS:SALT:DIGEST" with salt and digest in base64.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kx::webhost {

constexpr uint32_t kPasswordRounds = 200000;

struct PasswordHash {
  uint32_t rounds = 0;
  std::string salt;    // bytes
  std::string digest;  // bytes
};

// A fresh random salt of 16 bytes and a digest of 32.
PasswordHash HashPassword(std::string_view password, uint32_t rounds = kPasswordRounds);
// Compared in constant time.
bool PasswordMatches(const PasswordHash& hash, std::string_view password);
// The same work as PasswordMatches on a hash of kPasswordRounds, for a user who
// does not exist: the answer's timing must not tell.
void SpendPasswordCheckTime(std::string_view password);

std::string FormatPasswordHash(const PasswordHash& hash);
// Nothing for any other text, or fewer rounds than kPasswordRounds.
std::optional<PasswordHash> ParsePasswordHash(std::string_view text);

}  // namespace kx::webhost
