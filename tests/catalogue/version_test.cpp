#include <gtest/gtest.h>

#include "catalogue/version.h"

using namespace kx::catalogue;

TEST(VersionTest, ParsesPiecesLikeStrtolAndDropsTrailingZeros) {
  const struct {
    const char* text;
    std::vector<uint32_t> parts;
  } cases[] = {
      {"", {}},
      {"0", {}},
      {"2.0.0", {2}},
      {"20.0.0f0", {20}},       // letters end a piece
      {"1.5b3", {1, 5}},
      {"3.a", {3}},
      {"1..2", {1, 0, 2}},      // an empty piece is 0
      {"-1", {4294967295u}},    // stored unsigned
      {" +7.\t8", {7, 8}},      // leading white space and sign
      {"99999999999", {2147483647u}},   // clamped to the signed range
      {"-99999999999", {2147483648u}},
      {"- 5.1", {0, 1}},        // a sign without digits reads 0
  };
  for (const auto& c : cases) {
    Version version = ParseVersion(c.text);
    EXPECT_EQ(version.parts, c.parts) << c.text;
    EXPECT_EQ(version.text, c.text);
  }
  EXPECT_EQ(ParseVersionNumbers("8.0"), (std::vector<uint32_t>{8, 0}));
}

TEST(VersionTest, OrdersByPartsWithPrefixSmaller) {
  auto atLeast = [](const char* a, const char* b) { return VersionAtLeast(ParseVersion(a), ParseVersion(b)); };
  EXPECT_TRUE(atLeast("1.0", "1") && atLeast("1", "1.0"));
  EXPECT_TRUE(atLeast("1.0.1", "1") && !atLeast("1", "1.0.1"));
  EXPECT_TRUE(atLeast("1.10", "1.9") && !atLeast("1.9", "1.10"));
  EXPECT_TRUE(atLeast("-1", "999.999"));  // compared as unsigned
  EXPECT_TRUE(atLeast("", "") && !atLeast("", "0.1"));
  EXPECT_TRUE(VersionPartsEqual(ParseVersion("20.0.0f0"), ParseVersion("20")));
}

TEST(VersionTest, NamesCompareWithAsciiCaseFolded) {
  EXPECT_TRUE(NamesEqual("{899452d2-c085-430b-b76d-7fdb33bb324a}", "{899452D2-C085-430B-B76D-7FDB33BB324A}"));
  EXPECT_FALSE(NamesEqual("PharLap", "PharLap "));
  EXPECT_FALSE(NamesEqual("\xe9", "\xc9"));  // only ASCII letters fold
}
