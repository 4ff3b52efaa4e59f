// JPEG pictures with bytes too many or too few: which are whole all the same.
#include <algorithm>

#include "support/linux/CaptureGraphTest.h"
#include "support/linux/Jpegs.h"

namespace {

using Jpeg = std::vector<std::uint8_t>;

constexpr int kWidth = 64;
constexpr int kHeight = 48;
constexpr std::uint8_t kMarker = 0xFF;
constexpr std::uint8_t kFirstRestart = 0xD0;
// Between markers, that are harmless.
constexpr std::size_t kMaxStrayBytes = 16;

class StrayBytes : public GraphTest {
 protected:
  void SetUp() override {
    GraphTest::SetUp();
    BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  }
  // How many of the pictures arrive.
  std::size_t Arriving(const std::vector<Jpeg>& jpegs) {
    const std::size_t before = callback.Count();
    for (const Jpeg& jpeg : jpegs) {
      Deliver(jpeg);
    }
    // A good one of another picture, at which all of them have been through.
    const Jpeg last = TestJpeg(kWidth, kHeight, TJSAMP_GRAY);
    Deliver(last);
    EXPECT_TRUE(WaitUntil([&] {
      return callback.Count() > before &&
             graph::LatestStreamStats().delivered + graph::LatestStreamStats().undecodable == m_delivered;
    }));
    EXPECT_EQ(Stop(), S_OK);
    m_delivered = 0;
    EXPECT_EQ(Run(), S_OK);
    return callback.Count() - before - 1;
  }
  bool Arrives(const Jpeg& jpeg) { return Arriving({jpeg}) == 1; }

 private:
  void Deliver(const Jpeg& jpeg) {
    FakeFrame frame;
    frame.bytes = jpeg;
    EXPECT_TRUE(device->Deliver(std::move(frame)));
    ++m_delivered;
  }

  std::uint64_t m_delivered = 0;  // in this run
};

Jpeg WithStrayBytes(Jpeg jpeg, std::size_t at, std::size_t count) {
  jpeg.insert(jpeg.begin() + static_cast<std::ptrdiff_t>(at), count, 0xA5);
  return jpeg;
}

// Where the restart marker of that number is.
std::size_t FindRestart(const Jpeg& jpeg, std::uint8_t number) {
  const Jpeg marker = {kMarker, static_cast<std::uint8_t>(kFirstRestart + number)};
  const auto scan = jpeg.begin() + static_cast<std::ptrdiff_t>(ScanStart(jpeg));
  const auto found = std::search(scan, jpeg.end(), marker.begin(), marker.end());
  EXPECT_NE(found, jpeg.end());
  return static_cast<std::size_t>(found - jpeg.begin());
}

Jpeg Without(const Jpeg& jpeg, std::size_t from, std::size_t to) {
  Jpeg cut(jpeg.begin(), jpeg.begin() + static_cast<std::ptrdiff_t>(from));
  cut.insert(cut.end(), jpeg.begin() + static_cast<std::ptrdiff_t>(to), jpeg.end());
  return cut;
}

TEST_F(StrayBytes, BeforeAMarkerOfTheHeaderAreHarmlessWhenTheyAreFew) {
  const Jpeg whole = NoiseJpeg(kWidth, kHeight);
  constexpr std::size_t kAfterStart = 2;
  EXPECT_TRUE(Arrives(WithStrayBytes(whole, kAfterStart, 1)));
  EXPECT_TRUE(Arrives(WithStrayBytes(whole, kAfterStart, kMaxStrayBytes)));
  EXPECT_FALSE(Arrives(WithStrayBytes(whole, kAfterStart, kMaxStrayBytes + 1)));
}

TEST_F(StrayBytes, BeforeTheEndMarkerAreHarmlessWhenTheyAreFew) {
  const Jpeg whole = NoiseJpeg(kWidth, kHeight);
  const std::size_t end = whole.size() - 2;
  EXPECT_TRUE(Arrives(WithStrayBytes(whole, end, 1)));
  EXPECT_TRUE(Arrives(WithStrayBytes(whole, end, kMaxStrayBytes)));
  // The decoder takes some of them for the last block's before it counts.
  EXPECT_FALSE(Arrives(WithStrayBytes(whole, end, kMaxStrayBytes * 2)));
}

// --- Without an EOI marker ---

class MissingEoi : public StrayBytes {
 protected:
  static Jpeg WithoutEoi(const Jpeg& jpeg) { return Without(jpeg, jpeg.size() - 2, jpeg.size()); }
};

TEST_F(MissingEoi, IsHarmlessWhenEveryRowIsThere) {
  EXPECT_TRUE(Arrives(WithoutEoi(NoiseJpeg(kWidth, kHeight))));
  EXPECT_TRUE(Arrives(WithoutEoi(TestJpeg(kWidth, kHeight))));
  EXPECT_TRUE(Arrives(WithoutEoi(RestartJpeg(kWidth, kHeight))));
  EXPECT_TRUE(Arrives(WithoutEoi(WithoutHuffmanTables(NoiseJpeg(kWidth, kHeight)))));
}

TEST_F(MissingEoi, IsHarmlessWithHalfTheMarker) {
  Jpeg half = NoiseJpeg(kWidth, kHeight);
  half.pop_back();
  EXPECT_TRUE(Arrives(half));
}

TEST_F(MissingEoi, IsHarmlessWhenZerosFillUpTheTransfer) {
  Jpeg padded = WithoutEoi(NoiseJpeg(kWidth, kHeight));
  padded.resize(padded.size() + 1000);
  EXPECT_TRUE(Arrives(padded));
  padded.back() = 1;
  EXPECT_FALSE(Arrives(padded)) << "as much as this could be a lost part of the picture";
}

TEST_F(MissingEoi, DoesNotHideStrayBytesInsideThePicture) {
  const Jpeg whole = RestartJpeg(kWidth, kHeight);
  Jpeg padded = WithoutEoi(WithStrayBytes(whole, FindRestart(whole, 1), 40));
  padded.resize(padded.size() + 1000);
  EXPECT_FALSE(Arrives(padded));
}

TEST_F(MissingEoi, OfAPictureThatLacksDataMakesItDamaged) {
  const Jpeg whole = NoiseJpeg(kWidth, kHeight);
  std::vector<Jpeg> cut;
  for (std::size_t lost = 3; lost + ScanStart(whole) < whole.size(); lost += 41) {
    cut.push_back(Without(whole, whole.size() - lost, whole.size()));
  }
  ASSERT_GT(cut.size(), 20U);
  EXPECT_EQ(Arriving(cut), 0U);
}

TEST_F(MissingEoi, OfAPictureInSeveralScansMakesItDamaged) {
  // Any of the later scans could be missing.
  Coding progressive;
  progressive.isProgressive = true;
  Coding inScans;
  inScans.isInScans = true;
  for (const Coding& coding : {progressive, inScans}) {
    const Jpeg whole = WavesJpeg(kWidth, kHeight, coding);
    EXPECT_TRUE(Arrives(whole));
    EXPECT_FALSE(Arrives(WithoutEoi(whole)));
  }
}

// --- Damage ---

TEST_F(StrayBytes, ThatAreMuchOfThePictureMakeItDamaged) {
  const Jpeg whole = NoiseJpeg(kWidth, kHeight);
  Jpeg repeated = whole;
  // A part of the scan twice: the picture is full before the data is used up.
  const auto scan = whole.begin() + static_cast<std::ptrdiff_t>(ScanStart(whole));
  repeated.insert(repeated.begin() + (scan - whole.begin()) + 300, scan, scan + 300);
  EXPECT_FALSE(Arrives(repeated));
}

// What has been overwritten shifts the blocks that follow: the data is then too much or too little for the
// picture. Now and then the decoder finds its place again within a few bytes.
TEST_F(StrayBytes, OrTooFewAfterWrongOnesInTheScanMostlyMakeItDamaged) {
  const Jpeg whole = NoiseJpeg(kWidth, kHeight);
  constexpr std::size_t kWrongBytes = 64;
  std::vector<Jpeg> damaged;
  for (std::size_t at = ScanStart(whole); at + 2 * kWrongBytes < whole.size(); at += 23) {
    Jpeg wrong = whole;
    // No marker among them: zeros, which are the commonest short codes.
    std::fill_n(wrong.begin() + static_cast<std::ptrdiff_t>(at), kWrongBytes, std::uint8_t{0});
    damaged.push_back(wrong);
  }
  ASSERT_GT(damaged.size(), 20U);
  EXPECT_LT(Arriving(damaged), damaged.size() / 4);
}

TEST_F(StrayBytes, BeforeARestartMarkerAreHarmlessUnlessAnIntervalIsMissing) {
  const Jpeg whole = RestartJpeg(kWidth, kHeight);
  const std::size_t second = FindRestart(whole, 1);
  const std::size_t third = FindRestart(whole, 2);
  EXPECT_TRUE(Arrives(whole));
  EXPECT_TRUE(Arrives(WithStrayBytes(whole, second, 4)));
  const Jpeg cut = Without(whole, second, third);
  EXPECT_FALSE(Arrives(cut));
  EXPECT_FALSE(Arrives(WithStrayBytes(cut, second, 4))) << "the harmless warning hides no other";
}

}  // namespace
