// Open requests with numbers that no host should send, all the way to the real encoder: each is refused or
// works, and a good one works after it.
#include <algorithm>
#include <limits>
#include <utility>

#include "support/CameraHandlerTest.h"
#include "support/video/DecodedStream.h"

namespace {

constexpr std::uint32_t kMax = std::numeric_limits<std::uint32_t>::max();

class UnusualRequest : public CameraHandlerTest {
 protected:
  // Opens, delivers so many test cards of that size, answers what becomes of them, closes.
  Decoded Record(std::uint32_t width, std::uint32_t height, std::uint32_t fps, std::uint32_t frames,
                 ColorSpace layout = ColorSpace::kYuy2) {
    host.Reset();
    m_keyFrames = 0;
    if (const int result = Open("0", width, height, fps); result != 0) {
      ADD_FAILURE() << "open answers " << result;
      return {};
    }
    const std::vector<std::uint8_t> card = PaintFrame(TestCard(width, height), width, height, layout);
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
    EXPECT_EQ(packets.size(), frames) << "no frame is left out, none comes twice";
    m_keyFrames = std::count_if(packets.begin(), packets.end(), IsKeyFrame);
    return Decode(packets);
  }
  void ExpectASoundSession() {
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

TEST_F(UnusualRequest, SizesThatTheEncoderDoesNotTakeAreRefusedAndLeaveNothing) {
  QueryAndRelease();
  for (const auto& [width, height] :
       {Size{0, 0}, Size{0, 480}, Size{640, 0}, Size{1, 1}, Size{15, 480}, Size{640, 15}, Size{1, 480},
        Size{4097, 480}, Size{640, 4097}, Size{4096, 4096}, Size{65535, 16}, Size{16, 65535},
        Size{65535, 65535}, Size{65536, 65536}, Size{kMax, 16}, Size{16, kMax}, Size{kMax, kMax},
        Size{kMax - 15, kMax - 15}, Size{0x80000000U, 0x80000000U}}) {
    SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
    platform.ClearJournal();
    EXPECT_EQ(Open("0", width, height, 30), -1004);
    EXPECT_THAT(platform.Calls(), ::testing::IsEmpty()) << "no camera is touched";
    EXPECT_THAT(platform.Alive(), ::testing::IsEmpty());
    EXPECT_EQ(Close(), 0);
  }
  ExpectASoundSession();
}

TEST_F(UnusualRequest, RefusedSizeIsFollowedByASoundSessionWithoutAClose) {
  QueryAndRelease();
  for (const auto& [width, height] : {Size{0, 0}, Size{65535, 65535}, Size{kMax, kMax}}) {
    EXPECT_EQ(Open("0", width, height, 30), -1004);
    ExpectASoundSession();
  }
}

TEST_F(UnusualRequest, OddSizesAreEncodedAtTheEvenSizeBelow) {
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
      const Yuv& picture = decoded.pictures.back();
      EXPECT_EQ(picture.width, width - width % 2);
      EXPECT_EQ(picture.height, height - height % 2);
      EXPECT_GT(Psnr(picture.y, PaintYuv(TestCard(width, height), picture.width, picture.height).y), 25);
    }
  }
  ExpectASoundSession();
}

struct Rate {
  std::uint32_t fps;
  std::uint32_t frames;
  std::ptrdiff_t keyFrames;
};

// A key frame comes every five seconds of frames; that number is kept in 16 bits, and 0 means none but the
// first.
TEST_F(UnusualRequest, EveryRateEncodesEveryFrame) {
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
  ExpectASoundSession();
}

TEST_F(UnusualRequest, AllThatIsUnusualAtOnceIsRefusedForItsId) {
  QueryAndRelease();
  platform.ClearJournal();
  EXPECT_EQ(Open("camera", kMax, 0, kMax), -2);
  EXPECT_THAT(platform.Calls(), ::testing::IsEmpty());
  ExpectASoundSession();
}

}  // namespace
