// What the built-in camera offers, and each of its sizes in both layouts from the camera to the packets.
//
// The packets go into streams/NAME.h264, their number into streams/NAME.count; the build machine decodes them
// and reads the number, the orientation and the colours of each picture (see check_stream.sh).
#include <chrono>

#include "WindowsCameraTest.h"

namespace {

using fixtures::Format;
using fixtures::Layout;
using ::testing::ElementsAre;

using LaptopCamera = WindowsCameraTest;

TEST_F(LaptopCamera, OffersItsSizesAndRates) {
  ASSERT_EQ(Query(), 0);
  EXPECT_THAT(sizes, ElementsAre(Size{320, 240}, Size{640, 480}, Size{1280, 720}, Size{1920, 1080}));
  EXPECT_THAT(rates, ElementsAre(10000U, 15000U, 30000U));
  EXPECT_THAT(reports, ElementsAre());
}

TEST_F(LaptopCamera, IsFoundThoughThePlugInCameraIsListedToo) {
  UseFormats({{Layout::kYuy2, 352, 288, 25}});
  ASSERT_EQ(Query(), 0);
  EXPECT_THAT(sizes, ElementsAre(Size{352, 288}));
  EXPECT_THAT(rates, ElementsAre(25000U));
}

// Of the sizes that it has in both layouts the faster one is taken: 1280x720 comes as MJPG.
TEST_F(LaptopCamera, OpensEverySizeOfItsList) {
  ASSERT_EQ(Query(), 0);
  for (const auto& [width, height] : sizes) {
    host.Reset();
    EXPECT_EQ(Open(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)), 0);
    EXPECT_TRUE(host.WaitForPackets(5));
    Close();
    EXPECT_EQ(fixtures::LiveObjects(), 0);
  }
  EXPECT_THAT(log.Get(), ::testing::Contains("ERROR CameraOperator:0 [CameraOperator]Set camera parameter, "
                                             "(1280,720,30,1196444237)(CameraOperator::SetCameraFormat)"));
  EXPECT_THAT(log.Get(), ::testing::Contains("ERROR CameraOperator:0 [CameraOperator]Set camera parameter, "
                                             "(640,480,30,844715353)(CameraOperator::SetCameraFormat)"));
}

TEST_F(LaptopCamera, DeliversInRealTime) {
  fixtures::CameraBehaviour behaviour = Fast();
  behaviour.pace = fixtures::Pace::kReal;
  fixtures::SetBehaviour(behaviour);
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 30));
  // Thirty frames a second take their time, however slow the machine.
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(900));
}

class EveryFormat : public WindowsCameraTest, public ::testing::WithParamInterface<Format> {};

TEST_P(EveryFormat, Streams) {
  const Format& format = GetParam();
  // As many pictures as show order and repetition, fewer where each takes its time.
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

INSTANTIATE_TEST_SUITE_P(All, EveryFormat, ::testing::ValuesIn(AllFormats()), [](const auto& tried) {
  const Format& format = tried.param;
  return std::string(format.layout == Layout::kYuy2 ? "Yuy2_" : "Mjpg_") + std::to_string(format.width) +
         "x" + std::to_string(format.height);
});

}  // namespace
