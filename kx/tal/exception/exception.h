#pragma once
// The foundation's exception hierarchy. Every class has a fixed message and a
// fixed 32-bit status code, so a catcher can either show the text or map the code.

#include <cstdint>
#include <exception>
#include <string>

// Throws an exception that records where it was thrown.
#define KX_THROW(Type, ...) throw Type(__LINE__, __FILE__, ##__VA_ARGS__)

namespace kx::tal::exception {

// Status codes of the foundation library.
namespace status {
constexpr int32_t kUnspecified = -1;
constexpr int32_t kInvalidArgument = static_cast<int32_t>(0x8ABC700Fu);
constexpr int32_t kOutOfRange = static_cast<int32_t>(0x8ABC7007u);
constexpr int32_t kDeserializationError = static_cast<int32_t>(0x8ABC7014u);
constexpr int32_t kBufferOverflow = static_cast<int32_t>(0x8ABC7017u);
constexpr int32_t kInvalidSequence = static_cast<int32_t>(0x8ABC7030u);
constexpr int32_t kInvalidLocale = static_cast<int32_t>(0x8ABC7024u);
constexpr int32_t kTimeout = static_cast<int32_t>(0x8ABC7003u);
constexpr int32_t kInvalidOperation = static_cast<int32_t>(0x8ABC700Eu);
constexpr int32_t kInitializationFailure = static_cast<int32_t>(0x8ABC7010u);
constexpr int32_t kUnableToConvert = static_cast<int32_t>(0x8ABC7034u);
constexpr int32_t kNonexistent = static_cast<int32_t>(0x8ABC700Au);
constexpr int32_t kFileAlreadyExists = static_cast<int32_t>(0x8ABC701Bu);
constexpr int32_t kFileWriteFailed = static_cast<int32_t>(0x8ABC7011u);
constexpr int32_t kFileReadFailed = static_cast<int32_t>(0x8ABC7012u);
constexpr int32_t kAccessDenied = static_cast<int32_t>(0x8ABC7019u);
constexpr int32_t kObjectAlreadyExists = static_cast<int32_t>(0x8ABC7009u);
constexpr int32_t kSharedMemoryCorrupted = static_cast<int32_t>(0x8ABC7035u);
constexpr int32_t kNotImplemented = static_cast<int32_t>(0x80004001u);
}  // namespace status

class Exception : public std::exception {
 public:
  Exception() noexcept = default;
  Exception(int32_t line, const char* file) noexcept : line_(line), file_(file) {}

  const char* what() const noexcept override { return "unspecified exception"; }
  virtual int32_t code() const noexcept { return status::kUnspecified; }

  int32_t line() const noexcept { return line_; }
  const char* file() const noexcept { return file_; }

 private:
  int32_t line_ = 0;
  const char* file_ = nullptr;
};

// A class with a fixed message and code.
#define KX_TAL_FIXED_EXCEPTION(Name, Base, Text, Code)          \
  class Name : public Base {                                    \
   public:                                                      \
    using Base::Base;                                           \
    const char* what() const noexcept override { return Text; } \
    int32_t code() const noexcept override { return Code; }     \
  };

// A class whose message is a fixed prefix followed by a detail given at construction.
#define KX_TAL_DETAIL_EXCEPTION(Name, Base, Prefix)                                                                  \
  class Name : public Base {                                                                                         \
   public:                                                                                                           \
    explicit Name(const std::string& detail) : message_(Prefix + detail) {}                                          \
    Name(int32_t line, const char* file, const std::string& detail) : Base(line, file), message_(Prefix + detail) {} \
    const char* what() const noexcept override { return message_.c_str(); }                                          \
                                                                                                                     \
   private:                                                                                                          \
    std::string message_;                                                                                            \
  };

KX_TAL_FIXED_EXCEPTION(InvalidArgument, Exception, "Invalid argument(s)", status::kInvalidArgument)
KX_TAL_DETAIL_EXCEPTION(InvalidArgument2, InvalidArgument, std::string())

class NotFound : public Exception {
 public:
  using Exception::Exception;
};

KX_TAL_FIXED_EXCEPTION(OutOfRange, Exception, "Out of range", status::kOutOfRange)
KX_TAL_DETAIL_EXCEPTION(OutOfRange2, OutOfRange, std::string("Out of range: "))
KX_TAL_FIXED_EXCEPTION(BoundExceeded, Exception, "A request was made that would exceed the bounds", status::kOutOfRange)
KX_TAL_DETAIL_EXCEPTION(BoundExceeded2, BoundExceeded, std::string("A request was made that would exceed the bounds: "))
KX_TAL_FIXED_EXCEPTION(DeserializationError, Exception, "Failed to deserialize", status::kDeserializationError)
KX_TAL_FIXED_EXCEPTION(BufferOverflow, Exception, "Buffer overflowed", status::kBufferOverflow)
KX_TAL_FIXED_EXCEPTION(InvalidSequence, Exception, "Invalid UTF8 encoding sequence", status::kInvalidSequence)
KX_TAL_FIXED_EXCEPTION(InvalidLocale, Exception, "Invalid locale", status::kInvalidLocale)
KX_TAL_FIXED_EXCEPTION(Timeout, Exception, "Operation timed out", status::kTimeout)
KX_TAL_FIXED_EXCEPTION(InvalidOperation, Exception, "Invalid operation", status::kInvalidOperation)
KX_TAL_FIXED_EXCEPTION(InitializationFailure, Exception, "Initialization failed", status::kInitializationFailure)
KX_TAL_FIXED_EXCEPTION(UnableToConvert, Exception, "Unable to convert.", status::kUnableToConvert)
KX_TAL_FIXED_EXCEPTION(NonexistentException, Exception, "The object does not exist", status::kNonexistent)
KX_TAL_FIXED_EXCEPTION(FileAlreadyExists, Exception, "File already exists", status::kFileAlreadyExists)
KX_TAL_FIXED_EXCEPTION(FileWriteFailed, Exception, "Write file operation failed", status::kFileWriteFailed)
KX_TAL_FIXED_EXCEPTION(FileReadFailed, Exception, "Read file operation failed", status::kFileReadFailed)

class AccessDenied : public Exception {
 public:
  explicit AccessDenied(const std::string& what) : message_("Access denied: " + what) {}
  AccessDenied(int32_t line, const char* file, const std::string& what)
      : Exception(line, file), message_("Access denied: " + what) {}
  const char* what() const noexcept override { return message_.c_str(); }
  int32_t code() const noexcept override { return status::kAccessDenied; }

 private:
  std::string message_;
};

KX_TAL_FIXED_EXCEPTION(ObjectAlreadyExists, Exception, "Object already exists", status::kObjectAlreadyExists)
KX_TAL_FIXED_EXCEPTION(SharedMemoryCorrupted, Exception, "Corruptions were detected in shared memory.",
                       status::kSharedMemoryCorrupted)
KX_TAL_FIXED_EXCEPTION(NotImplemented, Exception, "Not implemented", status::kNotImplemented)

#undef KX_TAL_FIXED_EXCEPTION
#undef KX_TAL_DETAIL_EXCEPTION

}  // namespace kx::tal::exception
