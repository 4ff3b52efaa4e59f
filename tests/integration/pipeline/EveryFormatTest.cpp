// Every size and rate of laptop cameras in both pixel formats, from the camera to the decoded picture.
#include "SimulatedProductTest.h"

namespace {

struct FormatCase {
  std::uint32_t fourCc;
  std::uint32_t width;
  std::uint32_t height;
  std::uint32_t fps;
};

void PrintTo(const FormatCase& tested, std::ostream* out) {
  *out << (tested.fourCc == graph::kYuyv ? "YUY2 " : "MJPG ") << tested.width << "x" << tested.height
       << " at " << tested.fps;
}

class EveryFormatTest : public SimulatedProductTest, public ::testing::WithParamInterface<FormatCase> {};

TEST_P(EveryFormatTest, FramesArriveCompleteInOrderUprightAndWithTheirColours) {
  const FormatCase& tested = GetParam();
  // Enough pictures to detect reordering and repetition; fewer for large pictures to limit the run time.
  const std::uint64_t frames = tested.width > 1280 ? 20 : 40;
  UseFormats(FormatsOf(tested.fourCc, tested.width, tested.height, tested.fps));
  ASSERT_NO_FATAL_FAILURE(Record(tested.width, tested.height, tested.fps, frames));
  ASSERT_EQ(sizes.size(), 1U);
  EXPECT_EQ(rates, std::vector<std::uint32_t>{tested.fps * 1000});

  const std::vector<video::Bytes> packets = PacketBytes();
  EXPECT_TRUE(video::IsKeyFrame(packets.front()));
  const video::Decoded decoded = video::Decode(packets);
  EXPECT_EQ(decoded.errors, 0);
  ASSERT_EQ(decoded.pictures.size(), packets.size());
  for (std::uint32_t i = 0; i < decoded.pictures.size(); ++i) {
    const video::Yuv& picture = decoded.pictures[i];
    EXPECT_EQ(picture.width, tested.width);
    EXPECT_EQ(picture.height, tested.height);
    EXPECT_EQ(NumberIn(picture), i);
    // Upside down or with swapped colours the error exceeds 100.
    EXPECT_LT(simulated::CornerColourError(picture.y.data(), picture.u.data(), picture.v.data(),
                                           picture.width, picture.height),
              12);
  }
}

std::vector<FormatCase> AllFormats() {
  std::vector<FormatCase> all;
  for (const std::uint32_t fourCc : {graph::kYuyv, graph::kMjpg}) {
    for (const std::uint32_t fps : {30U, 15U, 10U}) {
      all.push_back({fourCc, 320, 240, fps});
      all.push_back({fourCc, 640, 480, fps});
      all.push_back({fourCc, 1280, 720, fps});
    }
    all.push_back({fourCc, 1920, 1080, 30});
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(All, EveryFormatTest, ::testing::ValuesIn(AllFormats()), [](const auto& tested) {
  const FormatCase& format = tested.param;
  return std::string(format.fourCc == graph::kYuyv ? "Yuy2_" : "Mjpg_") + std::to_string(format.width) + "x" +
         std::to_string(format.height) + "_at_" + std::to_string(format.fps);
});

using LaptopCameraTest = SimulatedProductTest;

TEST_F(LaptopCameraTest, ReportsItsSizesAndRates) {
  ASSERT_EQ(Query(), 0);
  EXPECT_EQ(sizes, (std::vector<std::pair<int, int>>{{320, 240}, {640, 480}, {1280, 720}, {1920, 1080}}));
  EXPECT_EQ(rates, (std::vector<std::uint32_t>{10000, 15000, 30000}));
}

// If a size is offered in both pixel formats, the faster one is used: MJPG for 1280x720.
TEST_F(LaptopCameraTest, EveryReportedSizeCanBeOpened) {
  ASSERT_EQ(Query(), 0);
  for (const auto& [width, height] : sizes) {
    host.Reset();
    ASSERT_EQ(Open(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height), 30), 0);
    EXPECT_TRUE(host.WaitForPackets(5));
    EXPECT_EQ(Close(), 1);
    ExpectNumbersFrom(0);
  }
}

TEST_F(LaptopCameraTest, RealTimeStreamLosesNoFrames) {
  UsePc(Laptop(simulated::Pace::kRealTime));
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 60));
  ExpectNumbersFrom(0);
}

}  // namespace
