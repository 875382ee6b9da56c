#include "exchange/lock_record.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace kx::exchange {
namespace {

using namespace std::string_literals;

// Whatever the ID holds, its record starts with one Id line that gives it back whole.
TEST(LockRecord, IdLineKeepsAnyIdWhole) {
  for (const std::string& id : {"A1"s, "{6F1C5A2E-9D3B}"s, "a\nId=B2"s, "cr\r\n"s, "a\0b"s, "back\\slash\\x41"s, "\\"s,
                                "\xc3\xa4 \x7f"s, std::string(4096, 'x')}) {
    const std::string text = LockRecordText({id, "holder", 42, 1600000000});
    const std::string line = LockRecordIdLine(id);
    EXPECT_EQ(text.rfind(line, 0), 0u) << id;
    EXPECT_EQ(line.find('\n'), line.size() - 1) << id;
    EXPECT_EQ(LockRecordActionId(line), id);
    EXPECT_EQ(LockRecordActionId(line.substr(0, line.size() - 1)), id);
  }
  EXPECT_EQ(LockRecordIdLine("a\nb\\"), "Id=a\\x0Ab\\\\\n");
}

TEST(LockRecord, HolderCannotForgeALine) {
  EXPECT_EQ(LockRecordText({"A1", "x\nId=B2\r\n", 7, 9}), "Id=A1\nHolder=x Id=B2  \nProcessId=7\nTime=9\n");
  EXPECT_EQ(LockRecordText({"A1", std::string(2000, 'h'), 7, 9}).size(),
            LockRecordText({"A1", std::string(kMaxLockHolderLength, 'h'), 7, 9}).size());
}

TEST(LockRecord, MalformedIdLinesNameNoAction) {
  for (const std::string& line : {""s, "Holder=x"s, "id=A1"s, "Id=a\\"s, "Id=a\\x4"s, "Id=a\\x4g"s, "Id=a\\x4a"s,
                                  "Id=a\\x41"s, "Id=a\\n"s, "Id=a\tb"s, "Id=a\nb"s}) {
    EXPECT_EQ(LockRecordActionId(line), std::nullopt) << line;
  }
  EXPECT_EQ(LockRecordActionId("Id="), "");
}

}  // namespace
}  // namespace kx::exchange
