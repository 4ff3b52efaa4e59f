// Open requests with extreme parameters and the real encoder: each is rejected or works, and a valid request
// works afterwards.
#include <algorithm>
#include <limits>
#include <utility>

#include "support/CameraHandlerTest.h"
#include "support/video/DecodedStream.h"

namespace {

using video::Bytes;
using video::Decoded;
using video::Psnr;

constexpr std::uint32_t kMax = std::numeric_limits<std::uint32_t>::max();

class UnusualRequestsTest : public CameraHandlerTest {
 protected:
  // Opens the camera, delivers test cards and closes. Returns the decoded stream.
  Decoded Record(std::uint32_t width, std::uint32_t height, std::uint32_t fps, std::uint32_t frames,
                 ColorSpace layout = ColorSpace::kYuy2) {
    host.Reset();
    m_keyFrames = 0;
    if (const int result = Open("0", width, height, fps); result != 0) {
      ADD_FAILURE() << "open returned " << result;
      return {};
    }
    const std::vector<std::uint8_t> card =
        video::PaintFrame(video::TestCard(width, height), width, height, layout);
    for (std::uint32_t number = 0; number < frames; ++number) {
      EXPECT_TRUE(platform.DeliverFrame(card));
    }
    EXPECT_TRUE(host.WaitForPackets(frames));
    EXPECT_EQ(Close(), 1);
    platform.DisposeOf("current media type");
    std::vector<Bytes> packets;
    for (const Packet& packet : host.Packets()) {
      packets.push_back(packet.bytes);
    }
    EXPECT_EQ(packets.size(), frames) << "one packet for each frame";
    m_keyFrames = std::count_if(packets.begin(), packets.end(), video::IsKeyFrame);
    return video::Decode(packets);
  }
  void ExpectSessionSucceeds() {
    const Decoded decoded = Record(64, 48, 30, 3);
    EXPECT_EQ(decoded.errors, 0);
    EXPECT_EQ(decoded.pictures.size(), 3U);
    EXPECT_EQ(m_keyFrames, 1);
  }

  std::ptrdiff_t m_keyFrames = 0;
};

struct Size {
  std::uint32_t width;
  std::uint32_t height;
};

TEST_F(UnusualRequestsTest, UnsupportedSizesAreRejectedWithoutLeaks) {
  QueryAndRelease();
  for (const auto& [width, height] :
       {Size{0, 0}, Size{0, 480}, Size{640, 0}, Size{1, 1}, Size{15, 480}, Size{640, 15}, Size{1, 480},
        Size{4097, 480}, Size{640, 4097}, Size{4096, 4096}, Size{65535, 16}, Size{16, 65535},
        Size{65535, 65535}, Size{65536, 65536}, Size{kMax, 16}, Size{16, kMax}, Size{kMax, kMax},
        Size{kMax - 15, kMax - 15}, Size{0x80000000U, 0x80000000U}}) {
    SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
    platform.ClearJournal();
    EXPECT_EQ(Open("0", width, height, 30), -1004);
    EXPECT_THAT(platform.Calls(), ::testing::IsEmpty()) << "no call reaches the platform";
    EXPECT_THAT(platform.Alive(), ::testing::IsEmpty());
    EXPECT_EQ(Close(), 0);
  }
  ExpectSessionSucceeds();
}

TEST_F(UnusualRequestsTest, SessionSucceedsAfterARejectedSizeWithoutClose) {
  QueryAndRelease();
  for (const auto& [width, height] : {Size{0, 0}, Size{65535, 65535}, Size{kMax, kMax}}) {
    EXPECT_EQ(Open("0", width, height, 30), -1004);
    ExpectSessionSucceeds();
  }
}

TEST_F(UnusualRequestsTest, OddSizesAreEncodedAtTheEvenSizeBelow) {
  for (const auto& [subType, layout] :
       {std::pair{MEDIASUBTYPE_YUY2, ColorSpace::kYuy2}, std::pair{MEDIASUBTYPE_MJPG, ColorSpace::kArgb32}}) {
    for (const auto& [width, height] : {Size{17, 17}, Size{65, 48}, Size{64, 49}, Size{321, 241}}) {
      SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
      platform.SetPc(scripted::LaptopPc(
          {scripted::OfSubType(subType, static_cast<LONG>(width), static_cast<LONG>(height), 30)}));
      QueryAndRelease();
      const Decoded decoded = Record(width, height, 30, 3, layout);
      EXPECT_EQ(decoded.errors, 0);
      ASSERT_EQ(decoded.pictures.size(), 3U);
      const video::Yuv& picture = decoded.pictures.back();
      EXPECT_EQ(picture.width, width - width % 2);
      EXPECT_EQ(picture.height, height - height % 2);
      EXPECT_GT(
          Psnr(picture.y, video::PaintYuv(video::TestCard(width, height), picture.width, picture.height).y),
          25);
    }
  }
  ExpectSessionSucceeds();
}

struct Rate {
  std::uint32_t fps;
  std::uint32_t frames;
  std::ptrdiff_t keyFrames;
};

// The key frame interval is five seconds of frames, stored in 16 bits; 0 means that only the first frame is a
// key frame.
TEST_F(UnusualRequestsTest, EveryFrameIsEncodedAtEveryRate) {
  QueryAndRelease();
  for (const auto& [fps, frames, keyFrames] :
       {Rate{0, 200, 1}, Rate{1, 12, 3}, Rate{13108, 12, 3}, Rate{65536, 200, 1}, Rate{0x80000000U, 200, 1},
        Rate{kMax, 200, 1}}) {
    SCOPED_TRACE(fps);
    const Decoded decoded = Record(64, 48, fps, frames);
    EXPECT_EQ(decoded.errors, 0);
    EXPECT_EQ(decoded.pictures.size(), frames);
    EXPECT_EQ(m_keyFrames, keyFrames);
  }
  ExpectSessionSucceeds();
}

TEST_F(UnusualRequestsTest, InvalidIdTakesPrecedenceOverInvalidSizeAndRate) {
  QueryAndRelease();
  platform.ClearJournal();
  EXPECT_EQ(Open("camera", kMax, 0, kMax), -2);
  EXPECT_THAT(platform.Calls(), ::testing::IsEmpty());
  ExpectSessionSucceeds();
}

}  // namespace
