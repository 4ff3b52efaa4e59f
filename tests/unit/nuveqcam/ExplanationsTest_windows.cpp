#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <vfwmsgs.h>

#include "camera/LibraryLog.h"

namespace nuveqcam {
namespace {

using ::testing::HasSubstr;

std::string CauseOf(HRESULT result) {
  const auto known = Explain(static_cast<std::uint32_t>(result));
  return known ? known->cause : "";
}

std::string NextStepAfter(HRESULT result) {
  const auto known = Explain(static_cast<std::uint32_t>(result));
  return known ? known->nextStep : "";
}

TEST(WindowsExplanation, ReportsACameraInUse) {
  EXPECT_EQ(CauseOf(HRESULT_FROM_WIN32(ERROR_BUSY)), "the camera is in use by another program");
  EXPECT_EQ(NextStepAfter(HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION)), "close that program and try again");
  EXPECT_THAT(CauseOf(HRESULT_FROM_WIN32(ERROR_NO_SYSTEM_RESOURCES)), HasSubstr("in use by another program"));
}

TEST(WindowsExplanation, RefersToTheSettings) {
  EXPECT_THAT(NextStepAfter(E_ACCESSDENIED), HasSubstr("Settings > Privacy & security > Camera"));
  EXPECT_THAT(NextStepAfter(REGDB_E_CLASSNOTREG), HasSubstr("Media Feature Pack"));
  EXPECT_THAT(NextStepAfter(HRESULT_FROM_WIN32(ERROR_GEN_FAILURE)), HasSubstr("Device Manager"));
}

TEST(WindowsExplanation, CoversTheOtherErrorCodes) {
  EXPECT_EQ(CauseOf(HRESULT_FROM_WIN32(ERROR_DEVICE_NOT_CONNECTED)), "the camera was disconnected");
  EXPECT_EQ(CauseOf(HRESULT_FROM_WIN32(ERROR_IO_DEVICE)), "the camera cannot be read");
  EXPECT_EQ(CauseOf(VFW_E_INVALIDMEDIATYPE), "the camera does not deliver that format");
  EXPECT_EQ(CauseOf(VFW_E_TYPE_NOT_ACCEPTED), "the camera does not deliver that format");
  EXPECT_EQ(CauseOf(VFW_E_CANNOT_CONNECT), "the camera's format cannot be converted");
}

}  // namespace
}  // namespace nuveqcam
