#include "kx/tal/exception/os_exception.h"

#include <cerrno>
#include <cstring>

namespace kx::tal::osdep {

namespace {
std::string ErrorText(int error) {
  char buffer[256];
  // GNU strerror_r returns the text, which may or may not be the buffer.
  return strerror_r(error, buffer, sizeof buffer);
}
}  // namespace

OSException::OSException(const std::string& message, int32_t error)
    : hasMessage_(true), message_(message), error_(error) {}

OSException::OSException(int32_t line, const char* file, const std::string& message, int32_t error)
    : Exception(line, file), hasMessage_(true), message_(message), error_(error) {}

const char* OSException::what() const noexcept { return hasMessage_ ? message_.c_str() : "Unknown error"; }

PosixError::PosixError() : PosixError(errno) {}
PosixError::PosixError(int32_t line, const char* file) : PosixError(line, file, errno) {}
PosixError::PosixError(int error) : OSException(ErrorText(error), error) {}
PosixError::PosixError(int32_t line, const char* file, int error) : OSException(line, file, ErrorText(error), error) {}

int32_t PosixError::code() const noexcept {
  if (osError() == 0) return oserror::kNone;
  if (osError() == ENOENT) return oserror::kNotFound;
  return oserror::kOther;
}

}  // namespace kx::tal::osdep
