#include "kx/tal/exception/exception.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <type_traits>
#include <typeinfo>

#include "kx/tal/exception/os_exception.h"

namespace ex = kx::tal::exception;
using kx::tal::osdep::OSException;
using kx::tal::osdep::PosixError;

namespace {

struct Row {
  std::shared_ptr<ex::Exception> made;
  const char* what;
  uint32_t code;
  bool (*isBase)(const ex::Exception*);
};

template <class Base>
bool DerivesFrom(const ex::Exception* e) {
  return dynamic_cast<const Base*>(e) != nullptr;
}

template <class T, class... Args>
std::shared_ptr<ex::Exception> Make(Args... args) {
  return std::make_shared<T>(args...);
}

}  // namespace

TEST(ExceptionTable, EveryClassHasItsBaseMessageAndCode) {
  const Row rows[] = {
      {Make<ex::Exception>(), "unspecified exception", 0xFFFFFFFFu,
       [](const ex::Exception*) { return std::is_base_of_v<std::exception, ex::Exception>; }},
      {Make<ex::InvalidArgument>(), "Invalid argument(s)", 0x8ABC700F, DerivesFrom<ex::Exception>},
      {Make<ex::InvalidArgument2>("bad field"), "bad field", 0x8ABC700F, DerivesFrom<ex::InvalidArgument>},
      {Make<ex::NotFound>(), "unspecified exception", 0xFFFFFFFFu, DerivesFrom<ex::Exception>},
      {Make<ex::OutOfRange>(), "Out of range", 0x8ABC7007, DerivesFrom<ex::Exception>},
      {Make<ex::OutOfRange2>("String offset out of range"), "Out of range: String offset out of range", 0x8ABC7007,
       DerivesFrom<ex::OutOfRange>},
      {Make<ex::BoundExceeded>(), "A request was made that would exceed the bounds", 0x8ABC7007,
       DerivesFrom<ex::Exception>},
      {Make<ex::BoundExceeded2>("Resulting string too large"),
       "A request was made that would exceed the bounds: Resulting string too large", 0x8ABC7007,
       DerivesFrom<ex::BoundExceeded>},
      {Make<ex::DeserializationError>(), "Failed to deserialize", 0x8ABC7014, DerivesFrom<ex::Exception>},
      {Make<ex::BufferOverflow>(), "Buffer overflowed", 0x8ABC7017, DerivesFrom<ex::Exception>},
      {Make<ex::InvalidSequence>(), "Invalid UTF8 encoding sequence", 0x8ABC7030, DerivesFrom<ex::Exception>},
      {Make<ex::InvalidLocale>(), "Invalid locale", 0x8ABC7024, DerivesFrom<ex::Exception>},
      {Make<ex::Timeout>(), "Operation timed out", 0x8ABC7003, DerivesFrom<ex::Exception>},
      {Make<ex::InvalidOperation>(), "Invalid operation", 0x8ABC700E, DerivesFrom<ex::Exception>},
      {Make<ex::InitializationFailure>(), "Initialization failed", 0x8ABC7010, DerivesFrom<ex::Exception>},
      {Make<ex::UnableToConvert>(), "Unable to convert.", 0x8ABC7034, DerivesFrom<ex::Exception>},
      {Make<ex::NonexistentException>(), "The object does not exist", 0x8ABC700A, DerivesFrom<ex::Exception>},
      {Make<ex::FileAlreadyExists>(), "File already exists", 0x8ABC701B, DerivesFrom<ex::Exception>},
      {Make<ex::FileWriteFailed>(), "Write file operation failed", 0x8ABC7011, DerivesFrom<ex::Exception>},
      {Make<ex::FileReadFailed>(), "Read file operation failed", 0x8ABC7012, DerivesFrom<ex::Exception>},
      {Make<ex::AccessDenied>("/etc/x"), "Access denied: /etc/x", 0x8ABC7019, DerivesFrom<ex::Exception>},
      {Make<ex::ObjectAlreadyExists>(), "Object already exists", 0x8ABC7009, DerivesFrom<ex::Exception>},
      {Make<ex::SharedMemoryCorrupted>(), "Corruptions were detected in shared memory.", 0x8ABC7035,
       DerivesFrom<ex::Exception>},
      {Make<ex::NotImplemented>(), "Not implemented", 0x80004001, DerivesFrom<ex::Exception>},
      {Make<OSException>(), "Unknown error", 42, DerivesFrom<ex::Exception>},
      {Make<OSException>(std::string("disk on fire"), 5), "disk on fire", 42, DerivesFrom<ex::Exception>},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(typeid(*row.made).name());
    EXPECT_STREQ(row.made->what(), row.what);
    EXPECT_EQ(static_cast<uint32_t>(row.made->code()), row.code);
    EXPECT_TRUE(row.isBase(row.made.get()));
    EXPECT_EQ(row.made->line(), 0);
    EXPECT_EQ(row.made->file(), nullptr);
  }
}

TEST(ExceptionTable, LocationIsKeptAndCopied) {
  try {
    KX_THROW(ex::OutOfRange2, "String offset out of range");
  } catch (const ex::OutOfRange& caught) {
    ex::OutOfRange2 copy = dynamic_cast<const ex::OutOfRange2&>(caught);
    EXPECT_EQ(copy.line(), caught.line());
    EXPECT_GT(copy.line(), 0);
    EXPECT_STREQ(copy.file(), __FILE__);
    EXPECT_STREQ(copy.what(), "Out of range: String offset out of range");
    EXPECT_NE(copy.what(), caught.what());  // own copy of the text, not a shared pointer
  }
}

// The code classifies errno: 7 for a missing file, 0 for none, 42 otherwise.
TEST(PosixErrorTest, CodeClassifiesErrno) {
  for (const auto& [error, code] : {std::pair{ENOENT, 7}, {0, 0}, {EACCES, 42}}) {
    errno = error;
    const PosixError made(12, "here.cpp");
    const OSException& asBase = made;
    EXPECT_EQ(made.code(), code);
    EXPECT_EQ(asBase.osError(), error);
    EXPECT_EQ(PosixError().code(), code);
    EXPECT_STREQ(made.what(), std::strerror(error));
    EXPECT_EQ(made.line(), 12);
    EXPECT_STREQ(made.file(), "here.cpp");
  }
}
