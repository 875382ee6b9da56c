#include "exchange/action_directory_name.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace kx::exchange {
namespace {

using namespace std::string_literals;

TEST(ActionDirectoryName, PlainIdsNameTheirOwnDirectory) {
  for (const std::string& id : {"A1"s, "run-7.b_c"s, ".hidden"s, std::string(128, 'z')}) {
    EXPECT_EQ(ActionDirectoryName(id), id);
    EXPECT_TRUE(IsActionDirectoryName(id)) << id;
  }
}

// Other IDs get one URL-safe path component, the same on every machine (the
// controller and the PC compute it apart), never one of a plain ID.
TEST(ActionDirectoryName, OtherIdsGetAStableEncodedName) {
  EXPECT_EQ(ActionDirectoryName("{6F1C5A2E-9D3B-4C1A-8E2F-0123456789AB}"),
            "~6F1C5A2E-9D3B-4C1A-8E2F-0123456789AB.5febff3f76782bfa");
  EXPECT_EQ(ActionDirectoryName(".."), "~.07da1a07b4a03f2d");
  const std::string ids[] = {".",
                             "..",
                             "a..b",
                             "a/b",
                             "/",
                             "../../etc/passwd",
                             "blank id",
                             "host:7",
                             "\xc3\xa4",
                             "a\nb",
                             "a\0b"s,
                             "~A1.0123456789abcdef",
                             std::string(129, 'a'),
                             std::string(4096, '/')};
  std::set<std::string> names;
  for (const std::string& id : ids) {
    const std::string name = ActionDirectoryName(id);
    EXPECT_EQ(name.front(), '~') << id;
    EXPECT_LE(name.size(), 82u) << id;
    EXPECT_EQ(name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.~"),
              std::string::npos)
        << id;
    EXPECT_TRUE(IsActionDirectoryName(name)) << name;
    EXPECT_EQ(ActionDirectoryName(id), name);
    names.insert(name);
  }
  EXPECT_EQ(names.size(), std::size(ids));
}

TEST(ActionDirectoryName, OnlyDerivableNamesAreActionDirectories) {
  for (const std::string& name :
       {""s, "."s, ".."s, "a/b"s, "a..b"s, "~"s, "~.0123456789abcde"s, "~x.0123456789ABCDEF"s, "~x:y.0123456789abcdef"s,
        "~x0123456789abcdef"s, "~" + std::string(65, 'a') + ".0123456789abcdef", std::string(129, 'a'), "a\0b"s}) {
    EXPECT_FALSE(IsActionDirectoryName(name)) << name;
  }
  EXPECT_TRUE(IsActionDirectoryName("~.0123456789abcdef"));
}

TEST(ActionDirectoryName, AcceptableIdsAreNonEmptyUpTo4KiB) {
  EXPECT_FALSE(IsAcceptableActionId(""));
  EXPECT_TRUE(IsAcceptableActionId(std::string(4096, '\xff')));
  EXPECT_FALSE(IsAcceptableActionId(std::string(4097, 'a')));
}

}  // namespace
}  // namespace kx::exchange
