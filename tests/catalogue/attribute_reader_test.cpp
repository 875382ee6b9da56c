#include <gtest/gtest.h>

#include "catalogue/attribute_reader.h"

using namespace kx::catalogue;

TEST(AttributeReaderTest, ReadsOnlyStrictlyWrittenAttributes) {
  const struct {
    const char* attributes;
    const char* name;
    std::optional<std::string> expected;
  } cases[] = {
      {" NAME=\"x\"", "NAME", "x"},
      {"NAME=\"x\"", "NAME", "x"},                      // the start counts as a blank
      {"\tNAME=\"x\"", "NAME", "x"},
      {"\nNAME=\"x\"", "NAME", "x"},
      {"\aNAME=\"x\"", "NAME", "x"},
      {"\rNAME=\"x\"", "NAME", std::nullopt},            // CR does not separate
      {" NAME =\"x\" NAME=\"y\"", "NAME", std::nullopt},  // blank before "=": absent at once
      {" NAME='x'", "NAME", std::nullopt},               // double quotes only
      {" NAME=x", "NAME", std::nullopt},
      {" NAMES=\"a\" NAME=\"b\"", "NAME", "b"},          // a longer name is passed over
      {" ADDONGROUP=\"g\"", "GROUP", std::nullopt},      // a name inside another
      {" ADDONGROUP=\"g\" GROUP=\"h\"", "GROUP", "h"},
      {" TITLE=\"NAME\" NAME=\"z\"", "NAME", "z"},
      {" NAME=\"open", "NAME", "open"},                  // no closing quote: to the end
      {" NAME=\"\"", "NAME", ""},
      {" NAME=\"a&amp;b\"", "NAME", "a&amp;b"},          // not decoded
      {" NAME=\"{899452d2-c085-430b}\"", "NAME", "{899452D2-C085-430B}"},
      {" NAME=\"{abc\"", "NAME", "{abc"},                // braces on both ends only
      {" NAME", "NAME", std::nullopt},
      {" NAME=", "NAME", std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ReadAttribute(c.attributes, c.name), c.expected) << c.attributes;
  }
}

TEST(AttributeReaderTest, YesFlagsAndFallbacks) {
  EXPECT_TRUE(ReadYesAttribute(" HIDE=\"YES\"", "HIDE"));
  EXPECT_FALSE(ReadYesAttribute(" HIDE=\"yes\"", "HIDE"));
  EXPECT_FALSE(ReadYesAttribute("", "HIDE"));
  EXPECT_EQ(ReadAttributeOr(" A=\"1\"", "OLDESTCOMPATIBLEVERSION", "0"), "0");
}
