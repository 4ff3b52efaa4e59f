// Sessions with a V4L2 camera: the whole product over fake system calls.
#include <fcntl.h>
#include <cerrno>
#include <cmath>
#include <numeric>

#include <gmock/gmock.h>

#include "camera/LibraryLog.h"
#include "support/ProductTest.h"
#include "support/linux/FakeSystemCalls.h"

namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using linux_support::Discrete;
using linux_support::FakeFrame;
using linux_support::FakeSystemCalls;
using linux_support::FakeV4l2Device;
using linux_support::FormatOffer;
using linux_support::kOpenCall;
using linux_support::VideoDeviceSettings;

constexpr std::uint32_t kWidth = 320;
constexpr std::uint32_t kHeight = 240;
constexpr std::uint32_t kFps = 30;

// The luma that identifies a frame.
std::uint8_t LumaOf(std::uint32_t number) { return static_cast<std::uint8_t>(40 + 15 * (number % 10)); }

class V4l2SessionTest : public ProductTest {
 protected:
  void SetUp() override {
    ProductTest::SetUp();
    v4l2::SetSystemCallsForTesting(&kernel);
    PlugIn();
  }
  void TearDown() override {
    ProductTest::TearDown();
    EXPECT_EQ(kernel.OpenHandles(), 0U);
    EXPECT_EQ(kernel.Mappings(), 0U);
    EXPECT_THAT(kernel.Misuse(), IsEmpty());
    v4l2::SetSystemCallsForTesting(nullptr);
  }

  // Adds a built-in camera.
  void PlugIn(std::vector<FormatOffer> formats = {{V4L2_PIX_FMT_YUYV, {Discrete(kWidth, kHeight, {kFps})}}}) {
    kernel.Tree().AddUsb({"1-5"});
    kernel.Tree().AddVideoOfUsb(0, "1-5:1.0", "Integrated Camera", 0);
    VideoDeviceSettings settings;
    settings.formats = std::move(formats);
    device = &kernel.AddDevice(0, settings);
  }
  void Unplug() { kernel.Unplug("1-5", {0}); }

  // Supplies YUYV frames, which the device delivers once it streams.
  void Supply(std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
      FakeFrame frame;
      frame.bytes.assign(std::size_t{2} * kWidth * kHeight, 128);
      for (std::size_t at = 0; at < frame.bytes.size(); at += 2) {
        frame.bytes[at] = LumaOf(i);
      }
      device->Supply(std::move(frame));
    }
  }
  // Supplies NV12 frames.
  void SupplyNv12(std::uint32_t count) {
    constexpr std::size_t kPixels = std::size_t{kWidth} * kHeight;
    for (std::uint32_t i = 0; i < count; ++i) {
      FakeFrame frame;
      frame.bytes.assign(kPixels, LumaOf(i));
      frame.bytes.resize(kPixels * 3 / 2, 128);
      device->Supply(std::move(frame));
    }
  }
  int OpenCamera() { return Open(kWidth, kHeight, kFps); }
  // Queries, opens and waits for some packets; more frames are pending then.
  void StartSession() {
    Supply(40);
    ASSERT_EQ(Query(), 0);
    ASSERT_EQ(OpenCamera(), 0);
    ASSERT_TRUE(host.WaitForPackets(3));
  }
  // Expects that the packets decode to the supplied frames, from the first on.
  void ExpectPicturesFromTheFirst() const {
    const std::vector<video::Bytes> packets = PacketBytes();
    const video::Decoded decoded = video::Decode(packets);
    EXPECT_EQ(decoded.errors, 0);
    ASSERT_EQ(decoded.pictures.size(), packets.size());
    for (std::uint32_t i = 0; i < decoded.pictures.size(); ++i) {
      const video::Yuv& picture = decoded.pictures[i];
      EXPECT_EQ(picture.width, kWidth);
      EXPECT_EQ(picture.height, kHeight);
      const double sum = std::accumulate(picture.y.begin(), picture.y.end(), 0.0);
      EXPECT_NEAR(sum / static_cast<double>(picture.y.size()), LumaOf(i), 5) << i;
    }
  }

  FakeSystemCalls kernel;
  FakeV4l2Device* device = nullptr;
};

TEST_F(V4l2SessionTest, DeliversTheCamerasPicturesAsPackets) {
  Supply(20);
  ASSERT_EQ(Query(), 0);
  EXPECT_THAT(sizes, ::testing::ElementsAre(std::pair(kWidth, kHeight)));
  EXPECT_EQ(rates, std::vector<std::uint32_t>{kFps * 1000});
  EXPECT_EQ(device->OpenHandles(), 0U) << "the query must close the device";
  ASSERT_EQ(OpenCamera(), 0);
  EXPECT_TRUE(device->IsStreaming());
  EXPECT_EQ(device->Format().pixelformat, std::uint32_t{V4L2_PIX_FMT_YUYV});
  EXPECT_TRUE(host.WaitForPackets(20));
  EXPECT_EQ(Close(), 1);
  EXPECT_FALSE(device->IsStreaming());
  EXPECT_EQ(device->OpenHandles(), 0U);
  EXPECT_EQ(host.PacketCount(), 20U);
  ExpectPicturesFromTheFirst();
}

TEST_F(V4l2SessionTest, StreamsNv12IfTheCameraAlsoOffersMjpg) {
  Unplug();
  PlugIn({{V4L2_PIX_FMT_H264, {Discrete(1920, 1080, {kFps})}},
          {V4L2_PIX_FMT_MJPEG, {Discrete(kWidth, kHeight, {kFps})}},
          {V4L2_PIX_FMT_NV12, {Discrete(kWidth, kHeight, {kFps})}}});
  SupplyNv12(20);
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(sizes.size(), 1U) << "H.264 is not offered";
  ASSERT_EQ(OpenCamera(), 0);
  EXPECT_EQ(device->Format().pixelformat, std::uint32_t{V4L2_PIX_FMT_NV12});
  EXPECT_TRUE(host.WaitForPackets(20));
  EXPECT_EQ(Close(), 1);
  ExpectPicturesFromTheFirst();
}

TEST_F(V4l2SessionTest, QueryFailsIfTheOnlyCameraIsInfrared) {
  Unplug();
  PlugIn({{V4L2_PIX_FMT_GREY, {Discrete(kWidth, kHeight, {kFps})}}});
  EXPECT_EQ(Query(), -1000);
}

TEST_F(V4l2SessionTest, CanReopenACameraAfterItsReturn) {
  ASSERT_NO_FATAL_FAILURE(StartSession());
  Unplug();
  EXPECT_TRUE(WaitFor([] { return graph::LatestStreamStats().isDisconnected; }));
  EXPECT_EQ(Query(), -1000);
  EXPECT_EQ(Close(), 1);
  ExpectPicturesFromTheFirst();
  EXPECT_EQ(OpenCamera(), -1001) << "not back yet";
  EXPECT_EQ(Close(), 0);
  PlugIn();
  host.Reset();
  ASSERT_NO_FATAL_FAILURE(StartSession());
  EXPECT_EQ(Close(), 1);
  ExpectPicturesFromTheFirst();
}

TEST_F(V4l2SessionTest, CanCloseADisconnectedCamera) {
  ASSERT_NO_FATAL_FAILURE(StartSession());
  device->Disconnect();
  EXPECT_TRUE(WaitFor([] { return graph::LatestStreamStats().damaged > 0; }));
  Unplug();
  EXPECT_TRUE(WaitFor([] { return graph::LatestStreamStats().isDisconnected; }));
  EXPECT_EQ(Close(), 1);
  ExpectPicturesFromTheFirst();
}

TEST_F(V4l2SessionTest, UnloadingTheLibraryStopsTheStream) {
  ASSERT_NO_FATAL_FAILURE(StartSession());
  Unload();
  EXPECT_FALSE(device->IsStreaming());
  EXPECT_EQ(device->OpenHandles(), 0U);
  EXPECT_EQ(device->Mappings(), 0U);
  const std::uint64_t packets = host.PacketCount();
  Supply(10);
  EXPECT_EQ(host.PacketCount(), packets);
  ExpectPicturesFromTheFirst();
}

TEST_F(V4l2SessionTest, OpenFailsWhileAnotherProgramUsesTheCamera) {
  const std::string path = (kernel.DevRoot() / "video0").string();
  const int other = kernel.Open(path.c_str(), O_RDWR | O_NONBLOCK);
  v4l2_requestbuffers request{};
  request.count = 4;
  request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  request.memory = V4L2_MEMORY_MMAP;
  ASSERT_EQ(kernel.Ioctl(other, VIDIOC_REQBUFS, &request), 0);

  EXPECT_EQ(Query(), 0) << "the capabilities can still be read";
  const nuveqcam::LibraryLog log(nullptr);
  EXPECT_EQ(OpenCamera(), -1001);
  ExpectOneMoreBlock();
  EXPECT_THAT(log.Lines(), Contains(HasSubstr("-2147024726")));
  EXPECT_EQ(Close(), 0);

  ASSERT_EQ(kernel.Close(other), 0);
  ASSERT_NO_FATAL_FAILURE(StartSession());
  EXPECT_EQ(Close(), 1);
  ExpectPicturesFromTheFirst();
}

TEST_F(V4l2SessionTest, OpenFailsWithoutPermission) {
  kernel.Fail(kOpenCall, EACCES);
  EXPECT_EQ(Query(), -1000);
  EXPECT_EQ(OpenCamera(), -1001);
  EXPECT_EQ(Close(), 0);
  EXPECT_EQ(device->OpenHandles(), 0U);
  kernel.FailNothing();
  ASSERT_NO_FATAL_FAILURE(StartSession());
  EXPECT_EQ(Close(), 1);
}

}  // namespace
