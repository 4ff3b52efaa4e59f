// Which JPEG pictures with stray or missing bytes are still accepted.
#include <algorithm>

#include "support/linux/CaptureGraphTest.h"
#include "support/linux/TestJpegs.h"

namespace linux_support {
namespace {

constexpr std::uint8_t kMarker = 0xFF;
constexpr std::uint8_t kFirstRestart = 0xD0;
// The number of bytes before a marker that the decoder accepts.
constexpr std::size_t kMaxStrayBytes = 16;

class StrayBytesTest : public CaptureGraphTest {
 protected:
  void SetUp() override {
    CaptureGraphTest::SetUp();
    BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  }
  // Delivers the pictures. Returns how many reach the callback.
  std::size_t CountAccepted(const std::vector<Jpeg>& jpegs) {
    const std::size_t before = callback.Count();
    for (const Jpeg& jpeg : jpegs) {
      Deliver(jpeg);
    }
    // A valid, different picture marks the end.
    const Jpeg last = TestJpeg(kPictureWidth, kPictureHeight, TJSAMP_GRAY);
    Deliver(last);
    EXPECT_TRUE(WaitFor([&] {
      return callback.Count() > before &&
             graph::LatestStreamStats().delivered + graph::LatestStreamStats().undecodable == m_delivered;
    }));
    EXPECT_EQ(Stop(), S_OK);
    m_delivered = 0;
    EXPECT_EQ(Run(), S_OK);
    return callback.Count() - before - 1;
  }
  bool IsAccepted(const Jpeg& jpeg) { return CountAccepted({jpeg}) == 1; }

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

// The offset of a restart marker.
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

TEST_F(StrayBytesTest, FewBytesBeforeAHeaderMarkerAreAccepted) {
  const Jpeg whole = NoiseJpeg(kPictureWidth, kPictureHeight);
  constexpr std::size_t kAfterStart = 2;
  EXPECT_TRUE(IsAccepted(WithStrayBytes(whole, kAfterStart, 1)));
  EXPECT_TRUE(IsAccepted(WithStrayBytes(whole, kAfterStart, kMaxStrayBytes)));
  EXPECT_FALSE(IsAccepted(WithStrayBytes(whole, kAfterStart, kMaxStrayBytes + 1)));
}

TEST_F(StrayBytesTest, FewBytesDoNotHideMany) {
  constexpr std::size_t kAfterStart = 2;
  Jpeg jpeg = NoiseJpeg(kPictureWidth, kPictureHeight);
  const std::size_t secondMarker = kAfterStart + 2 + (std::size_t{jpeg.at(4)} << 8) + jpeg.at(5);
  jpeg = WithStrayBytes(jpeg, secondMarker, 4);
  EXPECT_TRUE(IsAccepted(jpeg));
  EXPECT_FALSE(IsAccepted(WithStrayBytes(jpeg, kAfterStart, kMaxStrayBytes + 1)));
}

TEST_F(StrayBytesTest, FewBytesBeforeTheEoiMarkerAreAccepted) {
  const Jpeg whole = NoiseJpeg(kPictureWidth, kPictureHeight);
  const std::size_t end = whole.size() - 2;
  EXPECT_TRUE(IsAccepted(WithStrayBytes(whole, end, 1)));
  EXPECT_TRUE(IsAccepted(WithStrayBytes(whole, end, kMaxStrayBytes)));
  // The decoder consumes some of them as data of the last block.
  EXPECT_FALSE(IsAccepted(WithStrayBytes(whole, end, kMaxStrayBytes * 2)));
}

// --- Without an EOI marker ---

class MissingEoiTest : public StrayBytesTest {
 protected:
  static Jpeg WithoutEoi(const Jpeg& jpeg) { return Without(jpeg, jpeg.size() - 2, jpeg.size()); }
};

TEST_F(MissingEoiTest, IsAcceptedIfEveryRowIsComplete) {
  EXPECT_TRUE(IsAccepted(WithoutEoi(NoiseJpeg(kPictureWidth, kPictureHeight))));
  EXPECT_TRUE(IsAccepted(WithoutEoi(TestJpeg(kPictureWidth, kPictureHeight))));
  EXPECT_TRUE(IsAccepted(WithoutEoi(RestartJpeg(kPictureWidth, kPictureHeight))));
  EXPECT_TRUE(IsAccepted(WithoutEoi(WithoutHuffmanTables(NoiseJpeg(kPictureWidth, kPictureHeight)))));
}

TEST_F(MissingEoiTest, IsAcceptedWithHalfTheMarker) {
  Jpeg half = NoiseJpeg(kPictureWidth, kPictureHeight);
  half.pop_back();
  EXPECT_TRUE(IsAccepted(half));
}

TEST_F(MissingEoiTest, IsAcceptedIfOnlyZerosFollow) {
  Jpeg padded = WithoutEoi(NoiseJpeg(kPictureWidth, kPictureHeight));
  padded.resize(padded.size() + 1000);
  EXPECT_TRUE(IsAccepted(padded));
  for (const std::size_t fromEnd : {1U, 500U}) {
    Jpeg other = padded;
    other.at(other.size() - fromEnd) = 1;
    EXPECT_FALSE(IsAccepted(other)) << "trailing data could be the missing part of the picture";
  }
}

TEST_F(MissingEoiTest, IsAcceptedIfFewBytesFollow) {
  const Jpeg jpeg = WithoutEoi(NoiseJpeg(kPictureWidth, kPictureHeight));
  EXPECT_TRUE(IsAccepted(WithStrayBytes(jpeg, jpeg.size(), kMaxStrayBytes)));
  // The decoder consumes some of them as data of the last block.
  EXPECT_FALSE(IsAccepted(WithStrayBytes(jpeg, jpeg.size(), kMaxStrayBytes * 2)));
}

TEST_F(MissingEoiTest, DoesNotHideStrayBytesInThePicture) {
  const Jpeg whole = RestartJpeg(kPictureWidth, kPictureHeight);
  Jpeg padded = WithoutEoi(WithStrayBytes(whole, FindRestart(whole, 1), 40));
  padded.resize(padded.size() + 1000);
  EXPECT_FALSE(IsAccepted(padded));
}

TEST_F(MissingEoiTest, IsRejectedIfDataIsMissing) {
  const Jpeg whole = NoiseJpeg(kPictureWidth, kPictureHeight);
  std::vector<Jpeg> cut;
  for (std::size_t lost = 3; lost + ScanStart(whole) < whole.size(); lost += 41) {
    cut.push_back(Without(whole, whole.size() - lost, whole.size()));
  }
  ASSERT_GT(cut.size(), 20U);
  EXPECT_EQ(CountAccepted(cut), 0U);
}

TEST_F(MissingEoiTest, IsRejectedForMultiScanAndArithmeticPictures) {
  // A later scan could be missing.
  JpegCoding progressive;
  progressive.isProgressive = true;
  JpegCoding multiScan;
  multiScan.isMultiScan = true;
  // Missing data of an arithmetic coder reads as zeros.
  JpegCoding arithmetic;
  arithmetic.isArithmetic = true;
  for (const JpegCoding& coding : {progressive, multiScan, arithmetic}) {
    const Jpeg whole = WaveJpeg(kPictureWidth, kPictureHeight, coding);
    EXPECT_TRUE(IsAccepted(whole));
    EXPECT_FALSE(IsAccepted(WithoutEoi(whole)));
  }
}

// --- Damage ---

TEST_F(StrayBytesTest, ManyBytesAreRejected) {
  const Jpeg whole = NoiseJpeg(kPictureWidth, kPictureHeight);
  Jpeg repeated = whole;
  // Part of the scan occurs twice: the picture is complete before the end of the data.
  const auto scan = whole.begin() + static_cast<std::ptrdiff_t>(ScanStart(whole));
  repeated.insert(repeated.begin() + (scan - whole.begin()) + 300, scan, scan + 300);
  EXPECT_FALSE(IsAccepted(repeated));
}

// Overwritten bytes shift the following blocks, so that the amount of data no longer matches the picture. In
// a few cases the decoder resynchronizes within a few bytes.
TEST_F(StrayBytesTest, OverwrittenScanDataIsMostlyRejected) {
  const Jpeg whole = NoiseJpeg(kPictureWidth, kPictureHeight);
  constexpr std::size_t kWrongBytes = 64;
  std::vector<Jpeg> damaged;
  for (std::size_t at = ScanStart(whole); at + 2 * kWrongBytes < whole.size(); at += 23) {
    Jpeg wrong = whole;
    // Zeros contain no marker; they decode as the most common short codes.
    std::fill_n(wrong.begin() + static_cast<std::ptrdiff_t>(at), kWrongBytes, std::uint8_t{0});
    damaged.push_back(wrong);
  }
  ASSERT_GT(damaged.size(), 20U);
  EXPECT_LT(CountAccepted(damaged), damaged.size() / 4);
}

TEST_F(StrayBytesTest, FewBytesBeforeARestartMarkerAreAcceptedUnlessAnIntervalIsMissing) {
  const Jpeg whole = RestartJpeg(kPictureWidth, kPictureHeight);
  const std::size_t second = FindRestart(whole, 1);
  const std::size_t third = FindRestart(whole, 2);
  EXPECT_TRUE(IsAccepted(whole));
  EXPECT_TRUE(IsAccepted(WithStrayBytes(whole, second, 4)));
  const Jpeg cut = Without(whole, second, third);
  EXPECT_FALSE(IsAccepted(cut));
  EXPECT_FALSE(IsAccepted(WithStrayBytes(cut, second, 4))) << "an accepted warning must not hide another one";
}

}  // namespace
}  // namespace linux_support
