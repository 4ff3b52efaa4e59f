// Compressed pictures: decoded for the callback, bad ones dropped.
#include <algorithm>
#include <cstdlib>

#include "support/linux/CaptureGraphTest.h"
#include "support/linux/Jpegs.h"

namespace {

using ::testing::SizeIs;

constexpr int kWidth = 64;
constexpr int kHeight = 48;
// Of one channel, after decoding, away from edges.
constexpr int kTolerance = 6;

class Mjpeg : public GraphTest {
 protected:
  static FakeFrame Frame(std::vector<std::uint8_t> jpeg) {
    FakeFrame frame;
    frame.bytes = std::move(jpeg);
    return frame;
  }
  // The picture that the callback gets of the JPEG; empty when it gets none.
  std::vector<std::uint8_t> Decode(const std::vector<std::uint8_t>& jpeg) {
    const std::size_t before = callback.Count();
    EXPECT_TRUE(device->Deliver(Frame(jpeg)));
    EXPECT_TRUE(callback.WaitForFrames(before + 1));
    const std::vector<CollectedFrame> frames = callback.Frames();
    return frames.size() > before ? frames.back().bytes : std::vector<std::uint8_t>();
  }
  // Sends bad pictures, then a good one, and expects that one alone to arrive. Stops, and answers how many
  // were dropped.
  std::uint64_t SendBad(const std::vector<std::vector<std::uint8_t>>& bad) {
    const std::size_t before = callback.Count();
    for (const std::vector<std::uint8_t>& jpeg : bad) {
      EXPECT_TRUE(device->Deliver(Frame(jpeg)));
    }
    EXPECT_THAT(Decode(TestJpeg(kWidth, kHeight)), SizeIs(kWidth * kHeight * 4));
    EXPECT_EQ(callback.Count(), before + 1);
    EXPECT_EQ(Stop(), S_OK);
    EXPECT_EQ(graph::LatestStreamStats().delivered, before + 1);
    return graph::LatestStreamStats().undecodable + graph::LatestStreamStats().tooShort;
  }
};

using BadMjpeg = Mjpeg;

void ExpectChannel(int value, int expected, const char* what) {
  EXPECT_LE(std::abs(value - expected), kTolerance) << what << ": " << value << " for " << expected;
}

// The colour in the middle of a quarter; row 0 is the upper one.
void ExpectBgra(const std::vector<std::uint8_t>& picture, int column, int row, const Colour& colour) {
  ASSERT_THAT(picture, SizeIs(kWidth * kHeight * 4));
  const int x = kWidth / 4 + column * kWidth / 2;
  const int y = kHeight / 4 + row * kHeight / 2;
  // The lowest line comes first.
  const auto at = static_cast<std::size_t>((kHeight - 1 - y) * kWidth + x) * 4;
  ExpectChannel(picture.at(at), colour.b, "blue");
  ExpectChannel(picture.at(at + 1), colour.g, "green");
  ExpectChannel(picture.at(at + 2), colour.r, "red");
}

void ExpectTestPicture(const std::vector<std::uint8_t>& picture) {
  ExpectBgra(picture, 0, 0, kTopLeft);
  ExpectBgra(picture, 1, 0, kTopRight);
  ExpectBgra(picture, 0, 1, kBottomLeft);
  ExpectBgra(picture, 1, 1, kBottomRight);
}

TEST_F(Mjpeg, BecomesArgbWithTheLowestLineFirst) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  ExpectTestPicture(Decode(TestJpeg(kWidth, kHeight)));
  EXPECT_EQ(WaitForEvent(), kEventComplete);
}

TEST_F(Mjpeg, OfEverySubsamplingIsDecoded) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  for (const TJSAMP subsampling : {TJSAMP_444, TJSAMP_422, TJSAMP_420, TJSAMP_440, TJSAMP_411}) {
    ExpectTestPicture(Decode(TestJpeg(kWidth, kHeight, subsampling)));
  }
}

TEST_F(Mjpeg, InGreyIsDecoded) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  const std::vector<std::uint8_t> picture = Decode(TestJpeg(kWidth, kHeight, TJSAMP_GRAY));
  ExpectBgra(picture, 0, 0, {76, 76, 76});
  ExpectBgra(picture, 1, 1, {255, 255, 255});
}

TEST_F(Mjpeg, WithoutHuffmanTablesIsDecoded) {
  const std::vector<std::uint8_t> whole = TestJpeg(kWidth, kHeight);
  const std::vector<std::uint8_t> stripped = WithoutHuffmanTables(whole);
  ASSERT_LT(stripped.size(), whole.size());
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  ExpectTestPicture(Decode(stripped));
  ExpectTestPicture(Decode(stripped));
  ExpectTestPicture(Decode(whole));
}

TEST_F(Mjpeg, WithoutHuffmanTablesIsDecodedAfterOneWithTablesOfItsOwn) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  // Its tables are made to measure.
  const Coding progressive{"", 2, 1, 1, true};
  EXPECT_THAT(Decode(WavesJpeg(kWidth, kHeight, progressive)), SizeIs(kWidth * kHeight * 4));
  ExpectTestPicture(Decode(WithoutHuffmanTables(TestJpeg(kWidth, kHeight))));
}

TEST_F(Mjpeg, WithABitTooMuchBeforeItsEndIsDecoded) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  std::vector<std::uint8_t> padded = TestJpeg(kWidth, kHeight);
  padded.insert(padded.end() - 2, 3, 0);
  ExpectTestPicture(Decode(padded));
}

TEST_F(Mjpeg, FollowedByRubbishIsDecoded) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  std::vector<std::uint8_t> padded = TestJpeg(kWidth, kHeight);
  padded.resize(padded.size() + 100, 0xA5);
  ExpectTestPicture(Decode(padded));
}

TEST_F(Mjpeg, StaysCompressedForAGrabberThatAsksForThat) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_MJPG));
  const std::vector<std::uint8_t> jpeg = TestJpeg(kWidth, kHeight);
  EXPECT_EQ(Decode(jpeg), jpeg);
}

TEST_F(Mjpeg, IsDecodedForEveryRun) {
  Build(MjpgTo(MEDIASUBTYPE_ARGB32));
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(Run(), S_OK);
    ExpectTestPicture(Decode(TestJpeg(kWidth, kHeight)));
    ASSERT_EQ(Stop(), S_OK);
  }
}

// --- Bad ones ---

TEST_F(BadMjpeg, OfAnotherSizeIsDropped) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  EXPECT_EQ(SendBad({TestJpeg(32, 24), TestJpeg(64, 56), TestJpeg(128, 96), TestJpeg(8, 8)}), 4U);
}

TEST_F(BadMjpeg, ThatIsNoneIsDropped) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  const std::vector<std::uint8_t> start = {0xFF, 0xD8, 0xFF};
  EXPECT_EQ(SendBad({{},
                     {0xFF},
                     {0xFF, 0xD8},
                     start,
                     std::vector<std::uint8_t>(5000, 0xAB),
                     std::vector<std::uint8_t>(5000, 0xFF),
                     std::vector<std::uint8_t>(5000, 0)}),
            7U);
}

TEST_F(BadMjpeg, ThatIsCutOffIsDropped) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  const std::vector<std::uint8_t> whole = NoiseJpeg(kWidth, kHeight);
  EXPECT_THAT(Decode(whole), SizeIs(kWidth * kHeight * 4));
  std::vector<std::vector<std::uint8_t>> cut;
  for (std::size_t size = 1; size < whole.size() - 2; size += 41) {
    cut.emplace_back(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
  }
  EXPECT_GT(cut.size(), 20U);
  EXPECT_EQ(SendBad(cut), cut.size());
}

TEST_F(BadMjpeg, WithDamagedDataIsDropped) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  std::vector<std::uint8_t> damaged = NoiseJpeg(kWidth, kHeight);
  EXPECT_THAT(Decode(damaged), SizeIs(kWidth * kHeight * 4));
  const auto scan = static_cast<std::ptrdiff_t>(ScanStart(damaged));
  // A marker that has no place in the middle of a scan.
  damaged.at(static_cast<std::size_t>(scan) + 200) = 0xFF;
  damaged.at(static_cast<std::size_t>(scan) + 201) = 0xD9;
  EXPECT_EQ(SendBad({damaged}), 1U);
}

TEST_F(BadMjpeg, WhateverByteIsWrongIsSurvived) {
  Build(MjpgTo(MEDIASUBTYPE_ARGB32));
  // The good one after all bad ones is another picture, so that none of them can be taken for it.
  const std::vector<std::uint8_t> last = NoiseJpeg(kWidth, kHeight);
  ASSERT_EQ(Run(), S_OK);
  const std::vector<std::uint8_t> lastPicture = Decode(last);
  ASSERT_EQ(Stop(), S_OK);
  std::atomic<bool> hasLastCome = false;
  callback.onFrame = [&](const CollectedFrame& frame) {
    hasLastCome = hasLastCome || frame.bytes == lastPicture;
  };
  ASSERT_EQ(Run(), S_OK);
  const std::vector<std::uint8_t> good = TestJpeg(kWidth, kHeight);
  // Some of these can be decoded all the same.
  for (std::size_t at = 0; at < good.size(); at += 3) {
    std::vector<std::uint8_t> bad = good;
    bad.at(at) = static_cast<std::uint8_t>(bad.at(at) ^ 0xFF);
    ASSERT_TRUE(device->Deliver(Frame(bad)));
  }
  ASSERT_TRUE(device->Deliver(Frame(last)));
  EXPECT_TRUE(WaitUntil([&] { return hasLastCome.load(); }));
  EXPECT_EQ(Stop(), S_OK);
}

}  // namespace
