#pragma once
// Errors of the system services go straight to the system log: by the time they
// happen no request is waiting for an answer.

#include <functional>
#include <string>

namespace kx::system {

// Writes "<message> (errno=<error>)" to the system log (facility LOG_USER, priority
// LOG_ERR, no identity) and returns `error`. A null message is logged as
// "Invalid message (logErr)".
int logErr(const char* message, int error);

// Tests see each logged message and number; an empty function stops it.
using ErrorLogCapture = std::function<void(const std::string& message, int error)>;
void SetErrorLogCapture(ErrorLogCapture capture);

}  // namespace kx::system
