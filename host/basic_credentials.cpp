#include "host/basic_credentials.h"

#include <strings.h>

#include <optional>

#include "host/gnutls_util.h"
#include "host/users_file.h"

namespace kx::webhost {
namespace {

constexpr size_t kMaxHeader = 4096;

std::string_view Trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

}  // namespace

Authorization ParseAuthorization(std::string_view header) {
  Authorization result;
  if (header.size() > kMaxHeader) return result;
  header = Trimmed(header);
  const size_t space = header.find(' ');
  const std::string scheme(header.substr(0, space));
  if (::strcasecmp(scheme.c_str(), "Basic") != 0) {
    if (!scheme.empty()) result.form = Authorization::Form::kOtherScheme;
    return result;
  }
  if (space == std::string_view::npos) return result;
  const std::optional<std::string> decoded = tls::DecodeBase64(Trimmed(header.substr(space)));
  const size_t colon = decoded ? decoded->find(':') : std::string::npos;
  if (colon == std::string::npos || !IsValidUserName(std::string_view(*decoded).substr(0, colon))) return result;
  result.form = Authorization::Form::kBasic;
  result.user = decoded->substr(0, colon);
  result.password = decoded->substr(colon + 1);
  return result;
}

}  // namespace kx::webhost
