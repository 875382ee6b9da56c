#include "kx/tal/string_base.h"

#include <gtest/gtest.h>

#include "kx/tal/exception/exception.h"

using namespace kx::tal;
namespace ex = kx::tal::exception;

TEST(Utf8, RoundTripsEveryLength) {
  const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";  // a é € 😀 z
  const std::wstring wide = Utf8ToWide(text);
  ASSERT_EQ(wide.size(), 5u);
  EXPECT_EQ(wide[1], L'\u00E9');
  EXPECT_EQ(wide[3], static_cast<wchar_t>(0x1F600));
  EXPECT_EQ(WideToUtf8(wide), text);
  EXPECT_EQ(StringBase::FromUtf8(text).Utf8(), text);
}

TEST(Utf8, InvalidSequencesThrow) {
  const char* bad[] = {
      "\x80",              // continuation without lead
      "\xC3",              // truncated
      "\xC3\x28",          // bad continuation
      "\xC0\xAF",          // overlong "/"
      "\xED\xA0\x80",      // surrogate
      "\xF4\x90\x80\x80",  // above U+10FFFF
      "\xFF",
  };
  for (const char* text : bad) {
    SCOPED_TRACE(testing::PrintToString(std::string(text)));
    EXPECT_THROW(Utf8ToWide(text), ex::InvalidSequence);
  }
  EXPECT_THROW(WideToUtf8(std::wstring(1, static_cast<wchar_t>(0xD800))), ex::InvalidSequence);
}

TEST(IntegerText, FormatsAndParsesBase10) {
  EXPECT_EQ(IntegerToText(int64_t{0}), L"0");
  EXPECT_EQ(IntegerToText(int64_t{-2147467259}), L"-2147467259");
  EXPECT_EQ(IntegerToText(INT64_MIN), L"-9223372036854775808");
  EXPECT_EQ(IntegerToText(UINT64_MAX), L"18446744073709551615");

  EXPECT_EQ(TextToInt32("-2147483648"), INT32_MIN);
  EXPECT_EQ(TextToInt32("+17"), 17);
  EXPECT_EQ(TextToUInt32("4294967295"), UINT32_MAX);
  EXPECT_EQ(TextToInt64("-9223372036854775808"), INT64_MIN);
}

TEST(IntegerText, RejectsWhatIsNotWhollyANumber) {
  for (const char* text : {"", "12abc", " 1", "1 ", "-", "+", "0x10", "1.5"}) {
    SCOPED_TRACE(text);
    EXPECT_THROW(TextToInt32(text), ex::UnableToConvert);
    EXPECT_THROW(TextToUInt32(text), ex::UnableToConvert);
  }
  EXPECT_THROW(TextToUInt32("-1"), ex::UnableToConvert);
  EXPECT_THROW(TextToUInt32("4294967296"), ex::UnableToConvert);
  EXPECT_THROW(TextToInt32("2147483648"), ex::UnableToConvert);
  EXPECT_THROW(TextToInt32("-2147483649"), ex::UnableToConvert);
  EXPECT_THROW(TextToUInt64("18446744073709551616"), ex::UnableToConvert);
}

TEST(StringBaseTest, SubstringChecksTheOffset) {
  const StringBase text(L"software");
  EXPECT_EQ(text.Substring(4).Wide(), L"ware");
  EXPECT_EQ(text.Substring(8).Wide(), L"");
  try {
    text.Substring(9);
    FAIL();
  } catch (const ex::OutOfRange2& e) {
    EXPECT_STREQ(e.what(), "Out of range: String offset out of range");
  }
}
