// What decoded pictures look like, sample by sample, however they are coded and whatever their size.
#include <algorithm>
#include <array>
#include <cmath>
#include <ostream>

#include "support/linux/CaptureGraphTest.h"
#include "support/linux/Jpegs.h"

namespace {

using Jpeg = std::vector<std::uint8_t>;
using Pixels = std::vector<std::uint8_t>;

constexpr Coding kUsual{"422", 2, 1, 1, false};
constexpr Coding kTall{"422Tall", 2, 2, 2, false};
constexpr Coding kQuarter{"420", 2, 2, 1, false};
constexpr Coding kFull{"444", 1, 1, 1, false};
constexpr Coding kFlat{"440", 1, 2, 1, false};
constexpr Coding kNarrow{"411", 4, 1, 1, false};
constexpr Coding kProgressive{"Progressive422", 2, 1, 1, true};
constexpr Coding kScanned{"ScansOf422", 2, 1, 1, false, true};
constexpr Coding kRgb{"Rgb422", 2, 1, 1, false, false, true};

struct Case {
  Coding coding;
  unsigned width;
  unsigned height;

  friend std::ostream& operator<<(std::ostream& out, const Case& tested) {
    return out << tested.coding.name << ' ' << tested.width << 'x' << tested.height;
  }
};

// Of decoded samples against what they should be.
class Difference {
 public:
  void Add(int value, double expected) {
    const double error = value - expected;
    m_greatest = std::max(m_greatest, std::abs(error));
    m_sum += error;
    m_absoluteSum += std::abs(error);
    ++m_count;
  }
  double Greatest() const { return m_greatest; }
  double Mean() const { return m_absoluteSum / m_count; }
  double Bias() const { return std::abs(m_sum / m_count); }

  friend std::ostream& operator<<(std::ostream& out, const Difference& difference) {
    return out << "greatest " << difference.Greatest() << ", mean " << difference.Mean() << ", bias "
               << difference.Bias();
  }

 private:
  double m_greatest = 0;
  double m_sum = 0;
  double m_absoluteSum = 0;
  int m_count = 0;
};

class MjpegPicture : public GraphTest {
 protected:
  // The picture that a callback gets of the JPEG from a camera of that size.
  Pixels Decode(const Jpeg& jpeg, const Case& tested) {
    VideoDeviceSettings camera;
    camera.formats = {{V4L2_PIX_FMT_MJPEG, {Discrete(tested.width, tested.height, {30})}}};
    GraphSettings settings = MjpgTo(MEDIASUBTYPE_ARGB32);
    settings.width = static_cast<LONG>(tested.width);
    settings.height = static_cast<LONG>(tested.height);
    BuildAndRun(settings, camera);
    FakeFrame frame;
    frame.bytes = jpeg;
    EXPECT_TRUE(device->Deliver(std::move(frame)));
    EXPECT_TRUE(callback.WaitForFrames(1));
    const std::vector<CollectedFrame> frames = callback.Frames();
    constexpr std::size_t kBytesPerPixel = 4;
    const bool isWhole =
        !frames.empty() && frames.back().bytes.size() == kBytesPerPixel * tested.width * tested.height;
    EXPECT_TRUE(isWhole);
    return isWhole ? frames.back().bytes : Pixels(kBytesPerPixel * tested.width * tested.height);
  }
};

Pixels Upright(const Pixels& bottomUp, std::size_t line) {
  Pixels upright;
  for (std::size_t at = bottomUp.size(); at > 0; at -= line) {
    const auto end = bottomUp.begin() + static_cast<std::ptrdiff_t>(at);
    upright.insert(upright.end(), end - static_cast<std::ptrdiff_t>(line), end);
  }
  return upright;
}

// --- As coded ---

class MjpegOfHalvedColour : public MjpegPicture, public ::testing::WithParamInterface<Case> {};

TEST_P(MjpegOfHalvedColour, IsInArgbWhatInterpolationMakesOfItWithinALittle) {
  const Jpeg jpeg = WavesJpeg(GetParam().width, GetParam().height, GetParam().coding);
  const std::size_t line = std::size_t{4} * GetParam().width;
  const Pixels bgra = Upright(Decode(jpeg, GetParam()), line);
  const Pixels expected = DecodedByDefault(jpeg);
  Difference difference;
  for (std::size_t at = 0; at < bgra.size(); ++at) {
    difference.Add(bgra[at], expected[at]);
  }
  EXPECT_LE(difference.Greatest(), 9) << difference;
  EXPECT_LE(difference.Mean(), 1.1) << difference;
  EXPECT_LE(difference.Bias(), 0.1) << difference;
}

const auto kNameOfCase = [](const auto& tested) {
  return std::string(tested.param.coding.name) + "Of" + std::to_string(tested.param.width) + "x" +
         std::to_string(tested.param.height);
};

// Whole MCUs, parts of them, rows of them that are cut, and less than one.
INSTANTIATE_TEST_SUITE_P(Cases, MjpegOfHalvedColour,
                         ::testing::Values(Case{kUsual, 160, 96}, Case{kUsual, 162, 93}, Case{kUsual, 150, 1},
                                           Case{kTall, 160, 96}, Case{kTall, 146, 91},
                                           Case{kQuarter, 160, 96}, Case{kQuarter, 162, 97},
                                           Case{kQuarter, 134, 90}),
                         kNameOfCase);

// --- All others ---

class MjpegOfOtherColour : public MjpegPicture, public ::testing::WithParamInterface<Case> {};

TEST_P(MjpegOfOtherColour, IsInArgbAsLibjpegDecodesIt) {
  const Jpeg jpeg = WavesJpeg(GetParam().width, GetParam().height, GetParam().coding);
  const Pixels bgra = Decode(jpeg, GetParam());
  EXPECT_EQ(Upright(bgra, std::size_t{4} * GetParam().width), DecodedByDefault(jpeg));
}

INSTANTIATE_TEST_SUITE_P(Cases, MjpegOfOtherColour,
                         ::testing::Values(Case{kFull, 150, 93}, Case{kFlat, 150, 93}, Case{kNarrow, 150, 93},
                                           Case{kProgressive, 150, 93}, Case{kScanned, 150, 93},
                                           Case{kRgb, 150, 93}),
                         kNameOfCase);

// --- Bad ones ---

class BadMjpegOfEverySampling : public GraphTest, public ::testing::WithParamInterface<TJSAMP> {
 protected:
  void Deliver(const Jpeg& jpeg) {
    FakeFrame frame;
    frame.bytes = jpeg;
    EXPECT_TRUE(device->Deliver(std::move(frame)));
  }
};

TEST_P(BadMjpegOfEverySampling, IsDroppedAndTheNextOneIsDecoded) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  const Jpeg whole = NoiseJpeg(64, 48, GetParam());
  Deliver(whole);
  ASSERT_TRUE(callback.WaitForFrames(1));
  std::uint64_t bad = 0;
  for (std::size_t size = 1; size < whole.size() - 2; size += 41, ++bad) {
    Deliver(Jpeg(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
  }
  Jpeg ended = whole;
  const std::size_t middle = (ScanStart(whole) + whole.size()) / 2;
  ended.at(middle) = 0xFF;
  ended.at(middle + 1) = 0xD9;
  Deliver(ended);
  Deliver(whole);
  ASSERT_TRUE(callback.WaitForFrames(2));
  EXPECT_EQ(Stop(), S_OK);
  const std::vector<CollectedFrame> frames = callback.Frames();
  ASSERT_EQ(frames.size(), 2U);
  EXPECT_EQ(frames[0].bytes, frames[1].bytes);
  EXPECT_EQ(graph::LatestStreamStats().undecodable + graph::LatestStreamStats().tooShort, bad + 1);
}

INSTANTIATE_TEST_SUITE_P(Samplings, BadMjpegOfEverySampling,
                         ::testing::Values(TJSAMP_422, TJSAMP_420, TJSAMP_444), [](const auto& tested) {
                           return tested.param == TJSAMP_422   ? "422"
                                  : tested.param == TJSAMP_420 ? "420"
                                                               : "444";
                         });

}  // namespace
