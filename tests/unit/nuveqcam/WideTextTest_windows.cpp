#include "cli/WideText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include "cli/Text.h"

namespace nuveqcam {
namespace {

using ::testing::StartsWith;

TEST(ToWide, ConvertsToUtf16) {
  EXPECT_EQ(ToWide(""), L"");
  EXPECT_EQ(ToWide("a\u00e4\u4e2d\U0001F4F7"), L"a\u00e4\u4e2d\U0001F4F7");
  EXPECT_EQ(ToUtf8(ToWide("a\u00e4\u4e2d\U0001F4F7")), "a\u00e4\u4e2d\U0001F4F7");
}

TEST(ToWide, ReplacesInvalidUtf8) { EXPECT_EQ(ToUtf8(ToWide("a\xff")), "a\uFFFD"); }

TEST(SystemMessage, IsOneLineWithoutPeriod) {
  for (const auto code :
       {ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_DISK_FULL, ERROR_SHARING_VIOLATION}) {
    const std::string message = SystemMessage(static_cast<DWORD>(code));
    EXPECT_NE(message, "");
    EXPECT_EQ(message, SanitizeForTerminal(message));
    EXPECT_NE(message.back(), '.');
    EXPECT_NE(message.back(), ' ');
  }
}

TEST(SystemMessage, IsTheNumberOfAnUnknownCode) {
  EXPECT_EQ(SystemMessage(0x2FFFFFFF), "error 0x2fffffff");
  EXPECT_THAT(ComMessage(static_cast<HRESULT>(0x8FFFFFFF)), StartsWith("error 0x8fffffff"));
}

}  // namespace
}  // namespace nuveqcam
