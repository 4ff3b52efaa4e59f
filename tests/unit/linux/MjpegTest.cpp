// MJPEG streams: pictures are decoded for the callback, bad pictures are dropped.
#include <algorithm>
#include <cstdlib>

#include "support/linux/CaptureGraphTest.h"
#include "support/linux/TestJpegs.h"

namespace linux_support {
namespace {

using ::testing::SizeIs;

// For one channel away from edges.
constexpr int kChannelTolerance = 6;

class MjpegTest : public CaptureGraphTest {
 protected:
  static FakeFrame Frame(Jpeg jpeg) {
    FakeFrame frame;
    frame.bytes = std::move(jpeg);
    return frame;
  }
  // Delivers the JPEG. Returns the picture that the callback receives; empty if it receives none.
  Pixels Decode(const Jpeg& jpeg) {
    const std::size_t before = callback.Count();
    EXPECT_TRUE(device->Deliver(Frame(jpeg)));
    EXPECT_TRUE(callback.WaitForFrames(before + 1));
    const std::vector<CollectedFrame> frames = callback.Frames();
    return frames.size() > before ? frames.back().bytes : Pixels();
  }
  // Delivers bad pictures, then a valid one, and expects only that one to arrive. Stops the graph and returns
  // the number of dropped pictures.
  std::uint64_t DeliverBad(const std::vector<Jpeg>& bad) {
    const std::size_t before = callback.Count();
    for (const Jpeg& jpeg : bad) {
      EXPECT_TRUE(device->Deliver(Frame(jpeg)));
    }
    EXPECT_THAT(Decode(TestJpeg(kPictureWidth, kPictureHeight)), SizeIs(kPictureWidth * kPictureHeight * 4));
    EXPECT_EQ(callback.Count(), before + 1);
    EXPECT_EQ(Stop(), S_OK);
    EXPECT_EQ(graph::LatestStreamStats().delivered, before + 1);
    return graph::LatestStreamStats().undecodable + graph::LatestStreamStats().tooShort;
  }
};

using BadMjpegTest = MjpegTest;

void ExpectChannel(int value, int expected, const char* what) {
  EXPECT_LE(std::abs(value - expected), kChannelTolerance) << what << ": " << value << " for " << expected;
}

// Checks the colour in the middle of a quadrant; row 0 is the upper row.
void ExpectBgra(const Pixels& picture, int column, int row, const Colour& colour) {
  ASSERT_THAT(picture, SizeIs(kPictureWidth * kPictureHeight * 4));
  const int x = kPictureWidth / 4 + column * kPictureWidth / 2;
  const int y = kPictureHeight / 4 + row * kPictureHeight / 2;
  // The picture is bottom-up.
  const auto at = static_cast<std::size_t>((kPictureHeight - 1 - y) * kPictureWidth + x) * 4;
  ExpectChannel(picture.at(at), colour.b, "blue");
  ExpectChannel(picture.at(at + 1), colour.g, "green");
  ExpectChannel(picture.at(at + 2), colour.r, "red");
}

void ExpectTestPicture(const Pixels& picture) {
  ExpectBgra(picture, 0, 0, kTopLeft);
  ExpectBgra(picture, 1, 0, kTopRight);
  ExpectBgra(picture, 0, 1, kBottomLeft);
  ExpectBgra(picture, 1, 1, kBottomRight);
}

TEST_F(MjpegTest, DecodesToBottomUpArgb) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  ExpectTestPicture(Decode(TestJpeg(kPictureWidth, kPictureHeight)));
  EXPECT_EQ(WaitForEvent(), kEventComplete);
}

TEST_F(MjpegTest, DecodesEverySubsampling) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  for (const TJSAMP subsampling : {TJSAMP_444, TJSAMP_422, TJSAMP_420, TJSAMP_440, TJSAMP_411}) {
    ExpectTestPicture(Decode(TestJpeg(kPictureWidth, kPictureHeight, subsampling)));
  }
}

TEST_F(MjpegTest, DecodesGreyscale) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  const Pixels picture = Decode(TestJpeg(kPictureWidth, kPictureHeight, TJSAMP_GRAY));
  ExpectBgra(picture, 0, 0, {76, 76, 76});
  ExpectBgra(picture, 1, 1, {255, 255, 255});
}

TEST_F(MjpegTest, DecodesWithoutHuffmanTables) {
  const Jpeg whole = TestJpeg(kPictureWidth, kPictureHeight);
  const Jpeg stripped = WithoutHuffmanTables(whole);
  ASSERT_LT(stripped.size(), whole.size());
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  ExpectTestPicture(Decode(stripped));
  ExpectTestPicture(Decode(stripped));
  ExpectTestPicture(Decode(whole));
}

TEST_F(MjpegTest, DecodesWithoutHuffmanTablesAfterAPictureWithCustomTables) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  // libjpeg computes optimal tables for progressive pictures.
  const JpegCoding progressive{"", 2, 1, 1, true};
  EXPECT_THAT(Decode(WaveJpeg(kPictureWidth, kPictureHeight, progressive)),
              SizeIs(kPictureWidth * kPictureHeight * 4));
  ExpectTestPicture(Decode(WithoutHuffmanTables(TestJpeg(kPictureWidth, kPictureHeight))));
}

TEST_F(MjpegTest, DecodesWithExtraBytesBeforeEoi) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  Jpeg padded = TestJpeg(kPictureWidth, kPictureHeight);
  padded.insert(padded.end() - 2, 3, 0);
  ExpectTestPicture(Decode(padded));
}

TEST_F(MjpegTest, DecodesWithTrailingBytes) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  Jpeg padded = TestJpeg(kPictureWidth, kPictureHeight);
  padded.resize(padded.size() + 100, 0xA5);
  ExpectTestPicture(Decode(padded));
}

TEST_F(MjpegTest, IsDeliveredCompressedToAnMjpgGrabber) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_MJPG));
  const Jpeg jpeg = TestJpeg(kPictureWidth, kPictureHeight);
  EXPECT_EQ(Decode(jpeg), jpeg);
}

TEST_F(MjpegTest, DecodesInEveryRun) {
  Build(MjpgTo(MEDIASUBTYPE_ARGB32));
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(Run(), S_OK);
    ExpectTestPicture(Decode(TestJpeg(kPictureWidth, kPictureHeight)));
    ASSERT_EQ(Stop(), S_OK);
  }
}

// --- Bad pictures ---

TEST_F(BadMjpegTest, PicturesOfAnotherSizeAreDropped) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  EXPECT_EQ(DeliverBad({TestJpeg(32, 24), TestJpeg(64, 56), TestJpeg(128, 96), TestJpeg(8, 8)}), 4U);
}

TEST_F(BadMjpegTest, NonJpegDataIsDropped) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  const Jpeg start = {0xFF, 0xD8, 0xFF};
  EXPECT_EQ(DeliverBad({{},
                        {0xFF},
                        {0xFF, 0xD8},
                        start,
                        std::vector<std::uint8_t>(5000, 0xAB),
                        std::vector<std::uint8_t>(5000, 0xFF),
                        std::vector<std::uint8_t>(5000, 0)}),
            7U);
}

TEST_F(BadMjpegTest, TruncatedPicturesAreDropped) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  const Jpeg whole = NoiseJpeg(kPictureWidth, kPictureHeight);
  EXPECT_THAT(Decode(whole), SizeIs(kPictureWidth * kPictureHeight * 4));
  std::vector<Jpeg> cut;
  for (std::size_t size = 1; size < whole.size() - 2; size += 41) {
    cut.emplace_back(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
  }
  EXPECT_GT(cut.size(), 20U);
  EXPECT_EQ(DeliverBad(cut), cut.size());
}

TEST_F(BadMjpegTest, PicturesWithAMisplacedMarkerAreDropped) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  Jpeg damaged = NoiseJpeg(kPictureWidth, kPictureHeight);
  EXPECT_THAT(Decode(damaged), SizeIs(kPictureWidth * kPictureHeight * 4));
  const auto scan = static_cast<std::ptrdiff_t>(ScanStart(damaged));
  // An EOI marker in the middle of the scan.
  damaged.at(static_cast<std::size_t>(scan) + 200) = 0xFF;
  damaged.at(static_cast<std::size_t>(scan) + 201) = 0xD9;
  EXPECT_EQ(DeliverBad({damaged}), 1U);
}

TEST_F(BadMjpegTest, AnyInvertedByteIsHandled) {
  Build(MjpgTo(MEDIASUBTYPE_ARGB32));
  // The valid picture after the bad ones is different, so that none of them can be mistaken for it.
  const Jpeg last = NoiseJpeg(kPictureWidth, kPictureHeight);
  ASSERT_EQ(Run(), S_OK);
  const Pixels lastPicture = Decode(last);
  ASSERT_EQ(Stop(), S_OK);
  std::atomic<bool> hasLastArrived = false;
  callback.onFrame = [&](const CollectedFrame& frame) {
    hasLastArrived = hasLastArrived || frame.bytes == lastPicture;
  };
  ASSERT_EQ(Run(), S_OK);
  const Jpeg good = TestJpeg(kPictureWidth, kPictureHeight);
  // Some of these can still be decoded.
  for (std::size_t at = 0; at < good.size(); at += 3) {
    Jpeg bad = good;
    bad.at(at) = static_cast<std::uint8_t>(bad.at(at) ^ 0xFF);
    ASSERT_TRUE(device->Deliver(Frame(bad)));
  }
  ASSERT_TRUE(device->Deliver(Frame(last)));
  EXPECT_TRUE(WaitFor([&] { return hasLastArrived.load(); }));
  EXPECT_EQ(Stop(), S_OK);
}

class BadMjpegSubsamplingTest : public MjpegTest, public ::testing::WithParamInterface<TJSAMP> {};

TEST_P(BadMjpegSubsamplingTest, TruncatedPicturesAreDroppedAndTheNextIsDecoded) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  const Jpeg whole = NoiseJpeg(kPictureWidth, kPictureHeight, GetParam());
  std::vector<Jpeg> bad;
  for (std::size_t size = 1; size < whole.size() - 2; size += 41) {
    bad.emplace_back(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
  }
  Jpeg withEarlyEoi = whole;
  const std::size_t middle = (ScanStart(whole) + whole.size()) / 2;
  withEarlyEoi.at(middle) = 0xFF;
  withEarlyEoi.at(middle + 1) = 0xD9;
  bad.push_back(withEarlyEoi);
  const Pixels before = Decode(whole);
  for (const Jpeg& jpeg : bad) {
    ASSERT_TRUE(device->Deliver(Frame(jpeg)));
  }
  EXPECT_EQ(Decode(whole), before);
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(callback.Count(), 2U);
  EXPECT_EQ(graph::LatestStreamStats().undecodable + graph::LatestStreamStats().tooShort, bad.size());
}

INSTANTIATE_TEST_SUITE_P(Samplings, BadMjpegSubsamplingTest,
                         ::testing::Values(TJSAMP_422, TJSAMP_420, TJSAMP_444), [](const auto& tested) {
                           return tested.param == TJSAMP_422   ? "422"
                                  : tested.param == TJSAMP_420 ? "420"
                                                               : "444";
                         });

}  // namespace
}  // namespace linux_support
