#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "camera/LibraryLog.h"

namespace nuveqcam {
namespace {

TEST(LinuxExplanation, HasCauseAndNextStep) {
  EXPECT_STREQ(Explain(0x800700AA)->cause, "the camera is in use by another program");
  EXPECT_STREQ(Explain(0x80070005)->nextStep, "add your user to the group video and log in again");
  EXPECT_STREQ(Explain(0x8007048F)->cause, "the camera was disconnected");
  EXPECT_STREQ(Explain(0x80040200)->cause, "the camera does not deliver that format");
  EXPECT_STREQ(Explain(0x80040217)->cause, "the camera's format cannot be converted");
}

}  // namespace
}  // namespace nuveqcam
