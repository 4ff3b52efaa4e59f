// Sizes and rates of the built-in camera, and streams in each size and layout.
//
// streams_test.py runs EveryFormat, which saves its packets in streams/, and decodes and checks them.
#include <chrono>

#include "WindowsCameraTest.h"

namespace {

using fixtures::Format;
using fixtures::Layout;
using ::testing::ElementsAre;

using LaptopCamera = WindowsCameraTest;

TEST_F(LaptopCamera, ReportsItsSizesAndRates) {
  ASSERT_EQ(Query(), 0);
  EXPECT_THAT(sizes, ElementsAre(Size{320, 240}, Size{640, 480}, Size{1280, 720}, Size{1920, 1080}));
  EXPECT_THAT(rates, ElementsAre(10000U, 15000U, 30000U));
  EXPECT_THAT(reports, ElementsAre());
}

TEST_F(LaptopCamera, IsFoundNextToAPlugInCamera) {
  UseFormats({{Layout::kYuy2, 352, 288, 25}});
  ASSERT_EQ(Query(), 0);
  EXPECT_THAT(sizes, ElementsAre(Size{352, 288}));
  EXPECT_THAT(rates, ElementsAre(25000U));
}

TEST_F(LaptopCamera, OpensWithEveryReportedSize) {
  ASSERT_EQ(Query(), 0);
  std::vector<Layout> layouts;
  for (const auto& [width, height] : sizes) {
    host.Reset();
    EXPECT_EQ(Open(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)), 0);
    EXPECT_TRUE(host.WaitForPackets(5));
    layouts.push_back(fixtures::StreamLayout());
    Close();
    EXPECT_EQ(fixtures::LiveObjects(), 0);
  }
  // 1280x720 is streamed as MJPG, which has a higher rate than YUY2.
  EXPECT_THAT(layouts, ElementsAre(Layout::kYuy2, Layout::kYuy2, Layout::kMjpg, Layout::kMjpg));
}

TEST_F(LaptopCamera, DeliversAtItsFrameRate) {
  fixtures::CameraBehaviour behaviour = Unpaced();
  behaviour.pace = fixtures::Pace::kRealTime;
  fixtures::SetBehaviour(behaviour);
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 30));
  // A lower bound holds on slow machines, too.
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(900));
}

class EveryFormat : public WindowsCameraTest, public ::testing::WithParamInterface<Format> {};

TEST_P(EveryFormat, Streams) {
  const Format& format = GetParam();
  // Large pictures take long to encode.
  const std::uint64_t packets = format.width > 1280 ? 12 : 40;
  UseFormats({format});
  ASSERT_NO_FATAL_FAILURE(Record(format.width, format.height, format.fps, packets));
  EXPECT_THAT(sizes, ElementsAre(Size{format.width, format.height}));
  EXPECT_THAT(rates, ElementsAre(format.fps * 1000));
  const std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
  ASSERT_NO_FATAL_FAILURE(SavePackets("streams/" + name.substr(name.find('/') + 1)));
}

std::vector<Format> AllFormats() {
  std::vector<Format> all;
  for (const Layout layout : {Layout::kYuy2, Layout::kMjpg}) {
    for (const auto& [width, height] : {std::pair{320U, 240U}, {640U, 480U}, {1280U, 720U}, {1920U, 1080U}}) {
      all.push_back({layout, width, height, 30});
    }
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(All, EveryFormat, ::testing::ValuesIn(AllFormats()), [](const auto& parameter) {
  const Format& format = parameter.param;
  return std::string(format.layout == Layout::kYuy2 ? "Yuy2_" : "Mjpg_") + std::to_string(format.width) +
         "x" + std::to_string(format.height);
});

}  // namespace
