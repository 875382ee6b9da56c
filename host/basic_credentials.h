#pragma once
// The "Authorization" header of HTTP Basic authentication (RFC 7617).

#include <string>
#include <string_view>

namespace kx::webhost {

struct Authorization {
  enum class Form { kBasic, kOtherScheme, kMalformed };
  Form form = Form::kMalformed;
  std::string user;      // kBasic only: a valid user name (users_file.h)
  std::string password;  // kBasic only
};

// kMalformed for a header over 4 KiB, base64 that is not strictly that, no ":",
// or a user name that is not valid (a NUL or other control character in it).
Authorization ParseAuthorization(std::string_view header);

}  // namespace kx::webhost
