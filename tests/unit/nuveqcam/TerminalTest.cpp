#include "cli/Terminal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace nuveqcam {
namespace {

TEST(Progress, ShowsTimeFramesRateAndBitRate) {
  EXPECT_EQ(ProgressText({12.34, 370, 2369280}), "   12.3 s      370 frames   30.0 fps    1536 kbit/s");
}

TEST(Progress, IsZeroAtTheStart) {
  EXPECT_EQ(ProgressText({0, 1, 5000}), "    0.0 s        1 frames    0.0 fps       0 kbit/s");
}

TEST(Progress, HasAConstantWidthForADay) {
  EXPECT_EQ(ProgressText({86400, 2592000, 16588800000}).size(), ProgressText({}).size());
}

TEST(ProgressLine, IsOverwrittenAndEndedOnce) {
  std::ostringstream out;
  std::ostringstream err;
  {
    ProgressLine line({out, err, true});
    line.Show({});
    line.Show({});
    line.End();
  }
  EXPECT_EQ(err.str(), "\r" + ProgressText({}) + "\r" + ProgressText({}) + "\n");
  EXPECT_EQ(out.str(), "");
}

TEST(ProgressLine, OverwritesALongerText) {
  std::ostringstream out;
  std::ostringstream err;
  {
    ProgressLine line({out, err, true});
    line.ShowText("long text");
    line.ShowText("short");
    line.ShowText("s");
  }
  EXPECT_EQ(err.str(), "\rlong text\rshort    \rs    \n");
}

TEST(ProgressLine, IsNotPrintedWithoutATerminal) {
  std::ostringstream out;
  std::ostringstream err;
  {
    ProgressLine line({out, err, false});
    line.Show({});
  }
  EXPECT_EQ(err.str(), "");
}

}  // namespace
}  // namespace nuveqcam
