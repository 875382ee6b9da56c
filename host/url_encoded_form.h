#pragma once
// Form fields in application/x-www-form-urlencoded text ("a=1&b=x+y%21").

#include <string_view>
#include <vector>

#include "platform/webruntime/web_runtime.h"

namespace kx::webhost {

// Appends the fields of `text` in order. A name without "=" is a field with an
// empty value; empty pieces ("a=1&&b=2") are skipped. "+" is a blank, "%XX" a
// byte; a "%" not followed by two hex digits stays as it is.
void ParseUrlEncoded(std::string_view text, std::vector<webruntime::FormField>& fields);

}  // namespace kx::webhost
