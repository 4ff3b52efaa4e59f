#include "cli/Text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cwchar>

namespace nuveqcam {
namespace {

TEST(Decimal, HasADecimalPointAndRounds) {
  EXPECT_EQ(Decimal(1.25, 1), "1.2");
  EXPECT_EQ(Decimal(0.999, 2), "1.00");
  EXPECT_EQ(Decimal(1536.4, 0), "1536");
  EXPECT_EQ(Decimal(1e300, 1).size(), 303);
}

TEST(Pad, AlignsAndNeverTruncates) {
  EXPECT_EQ(PadLeft("ab", 4), "  ab");
  EXPECT_EQ(PadRight("ab", 4), "ab  ");
  EXPECT_EQ(PadLeft("abcde", 4), "abcde");
  EXPECT_EQ(PadRight("abcde", 4), "abcde");
}

TEST(SanitizeForTerminal, ReplacesControlCharacters) {
  EXPECT_EQ(SanitizeForTerminal("K\u00e4mera \u4e2d \U0001F4F7"), "K\u00e4mera \u4e2d \U0001F4F7");
  EXPECT_EQ(SanitizeForTerminal("a\nb\x1b[31m\x7f"), "a?b?[31m?");
  EXPECT_EQ(SanitizeForTerminal("\u009b31m"), "?31m");
  EXPECT_EQ(SanitizeForTerminal("\x9b"), "\uFFFD");
}

TEST(SanitizeForTerminal, ReplacesBidiFormattingCharacters) {
  // U+202A to U+202E and U+2066 to U+2069, concatenated to keep them out of the source.
  for (char last = '\xaa'; last <= '\xae'; ++last) {
    EXPECT_EQ(SanitizeForTerminal(std::string("a\xe2\x80") + last + "b"), "a?b");
  }
  for (char last = '\xa6'; last <= '\xa9'; ++last) {
    EXPECT_EQ(SanitizeForTerminal(std::string("a\xe2\x81") + last + "b"), "a?b");
  }
  EXPECT_EQ(SanitizeForTerminal("\u2029\u202f\u2065\u206a"), "\u2029\u202f\u2065\u206a");
  EXPECT_EQ(SanitizeForTerminal("\u05d0\u0628"), "\u05d0\u0628");
}

TEST(SanitizeForTerminal, ReplacesInvalidUtf8) {
  for (const char* const invalid : {"\xff", "\x80", "\xc0", "\xc1", "\xf5", "\xc3", "\xfe"}) {
    EXPECT_EQ(SanitizeForTerminal(invalid), "\uFFFD");
  }
  // Overlong, a surrogate, beyond U+10FFFF, truncated.
  EXPECT_EQ(SanitizeForTerminal("a\xe0\x80\x80z"), "a\uFFFDz");
  EXPECT_EQ(SanitizeForTerminal("a\xed\xa0\x80z"), "a\uFFFDz");
  EXPECT_EQ(SanitizeForTerminal("a\xf4\x90\x80\x80z"), "a\uFFFDz");
  EXPECT_EQ(SanitizeForTerminal("a\xe4\xb8z"), "a\uFFFDz");
  EXPECT_EQ(SanitizeForTerminal("a\xe4\xb8"), "a\uFFFD");
}

TEST(ToUtf8, ConvertsWideTextIndependentOfTheLocale) {
  EXPECT_EQ(ToUtf8(L"a\u00e4\u4e2d\U0001F4F7"), "a\u00e4\u4e2d\U0001F4F7");
  EXPECT_EQ(ToUtf8(std::wstring(1, static_cast<wchar_t>(0xD800))), "\uFFFD");
  const std::wstring high(1, static_cast<wchar_t>(0xD83D));
  const std::wstring low(1, static_cast<wchar_t>(0xDCF7));
  EXPECT_EQ(ToUtf8(high + low), "\U0001F4F7");
  EXPECT_EQ(ToUtf8(low + high), "\uFFFD\uFFFD");
  EXPECT_EQ(ToUtf8(high + L"a"), "\uFFFDa");
  if constexpr (WCHAR_MAX > 0x10FFFF) {
    EXPECT_EQ(ToUtf8(std::wstring(1, static_cast<wchar_t>(0x110000))), "\uFFFD");
  }
}

}  // namespace
}  // namespace nuveqcam
