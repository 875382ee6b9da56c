#pragma once
// Operating-system errors. The small codes classify the error for a catcher that
// does not care about the exact errno: 0 none, 7 "no such file", 42 anything else.

#include <string>

#include "kx/tal/exception/exception.h"

namespace kx::tal::osdep {

namespace oserror {
constexpr int32_t kNone = 0;
constexpr int32_t kNotFound = 7;
constexpr int32_t kOther = 42;
}  // namespace oserror

class OSException : public exception::Exception {
 public:
  OSException() noexcept = default;
  OSException(int32_t line, const char* file) noexcept : Exception(line, file) {}
  explicit OSException(const std::string& message, int32_t error = 0);
  OSException(int32_t line, const char* file, const std::string& message, int32_t error = 0);

  const char* what() const noexcept override;
  int32_t code() const noexcept override { return oserror::kOther; }
  virtual int32_t osError() const noexcept { return error_; }

 private:
  bool hasMessage_ = false;
  std::string message_;
  int32_t error_ = 0;
};

// Built from the current errno (or a given error number): the message is the
// system's text for it.
class PosixError : public OSException {
 public:
  PosixError();
  PosixError(int32_t line, const char* file);
  explicit PosixError(int error);
  PosixError(int32_t line, const char* file, int error);

  int32_t code() const noexcept override;
};

}  // namespace kx::tal::osdep
