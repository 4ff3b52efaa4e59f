// Every size and rate in both layouts that laptop cameras have, from the camera to the decoded picture.
#include "SimulatedProductTest.h"

namespace {

struct Tried {
  std::uint32_t fourCc;
  std::uint32_t width;
  std::uint32_t height;
  std::uint32_t fps;
};

void PrintTo(const Tried& tried, std::ostream* out) {
  *out << (tried.fourCc == graph::kYuyv ? "YUY2 " : "MJPG ") << tried.width << "x" << tried.height << " at "
       << tried.fps;
}

class EveryFormat : public SimulatedCameraTest, public ::testing::WithParamInterface<Tried> {};

TEST_P(EveryFormat, ArrivesWholeInOrderUprightAndInItsColours) {
  const Tried& tried = GetParam();
  // As many pictures as show order and repetition, fewer where each takes its time.
  const std::uint64_t frames = tried.width > 1280 ? 20 : 40;
  UseFormats(FormatsOf(tried.fourCc, tried.width, tried.height, tried.fps));
  ASSERT_NO_FATAL_FAILURE(Record(tried.width, tried.height, tried.fps, frames));
  ASSERT_EQ(resolutions.size(), 1U);
  EXPECT_EQ(rates, std::vector<std::uint32_t>{tried.fps * 1000});

  const std::vector<Bytes> packets = PacketBytes();
  EXPECT_TRUE(IsKeyFrame(packets.front()));
  const Decoded decoded = Decode(packets);
  EXPECT_EQ(decoded.errors, 0);
  ASSERT_EQ(decoded.pictures.size(), packets.size());
  for (std::uint32_t i = 0; i < decoded.pictures.size(); ++i) {
    const Yuv& picture = decoded.pictures[i];
    EXPECT_EQ(picture.width, tried.width);
    EXPECT_EQ(picture.height, tried.height);
    EXPECT_EQ(NumberIn(picture), i);
    // Upside down or with colours swapped it is above a hundred.
    EXPECT_LT(simulated::CornerColourError(picture.y.data(), picture.u.data(), picture.v.data(),
                                           picture.width, picture.height),
              12);
  }
}

std::vector<Tried> AllFormats() {
  std::vector<Tried> all;
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

INSTANTIATE_TEST_SUITE_P(All, EveryFormat, ::testing::ValuesIn(AllFormats()), [](const auto& tried) {
  const Tried& one = tried.param;
  return std::string(one.fourCc == graph::kYuyv ? "Yuy2_" : "Mjpg_") + std::to_string(one.width) + "x" +
         std::to_string(one.height) + "_at_" + std::to_string(one.fps);
});

using LaptopCamera = SimulatedCameraTest;

TEST_F(LaptopCamera, OffersItsSizesAndRates) {
  ASSERT_EQ(Query(), 0);
  std::vector<std::pair<int, int>> sizes;
  for (const NUVEQResolution& size : resolutions) {
    sizes.emplace_back(size.width, size.height);
  }
  EXPECT_EQ(sizes, (std::vector<std::pair<int, int>>{{320, 240}, {640, 480}, {1280, 720}, {1920, 1080}}));
  EXPECT_EQ(rates, (std::vector<std::uint32_t>{10000, 15000, 30000}));
}

// Of the sizes that the laptop's camera has in both layouts the faster one is taken: 1280x720 comes as MJPG.
TEST_F(LaptopCamera, OpensEverySizeOfItsList) {
  ASSERT_EQ(Query(), 0);
  for (const NUVEQResolution& size : resolutions) {
    host.Reset();
    ASSERT_EQ(Open(static_cast<std::uint32_t>(size.width), static_cast<std::uint32_t>(size.height), 30), 0);
    EXPECT_TRUE(host.WaitForPackets(5));
    EXPECT_EQ(Close(), 1);
    ExpectNumbersFrom(0);
  }
}

TEST_F(LaptopCamera, InRealTimeLosesNothingEither) {
  UsePc(Laptop(simulated::Pace::kRealTime));
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 60));
  ExpectNumbersFrom(0);
}

}  // namespace
