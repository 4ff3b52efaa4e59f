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
  Pixels Decode(const Jpeg& jpeg, const Case& tested, const GUID& subtype) {
    VideoDeviceSettings camera;
    camera.formats = {{V4L2_PIX_FMT_MJPEG, {Discrete(tested.width, tested.height, {30})}}};
    GraphSettings settings = MjpgTo(subtype);
    settings.width = static_cast<LONG>(tested.width);
    settings.height = static_cast<LONG>(tested.height);
    BuildAndRun(settings, camera);
    FakeFrame frame;
    frame.bytes = jpeg;
    EXPECT_TRUE(device->Deliver(std::move(frame)));
    EXPECT_TRUE(callback.WaitForFrames(1));
    const std::vector<CollectedFrame> frames = callback.Frames();
    const std::size_t bytes = subtype == MEDIASUBTYPE_YUY2 ? 2 : 4;
    const bool isWhole =
        !frames.empty() && frames.back().bytes.size() == bytes * tested.width * tested.height;
    EXPECT_TRUE(isWhole);
    return isWhole ? frames.back().bytes : Pixels(bytes * tested.width * tested.height);
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

struct Yuv {
  double y = 0;
  double u = 0;
  double v = 0;
};

// BT.601 with limited range.
Yuv YuvOf(const std::uint8_t* bgra) {
  const double b = bgra[0];
  const double g = bgra[1];
  const double r = bgra[2];
  return {16 + (65.481 * r + 128.553 * g + 24.966 * b) / 255, 128 + (112 * b - 74.203 * g - 37.797 * r) / 255,
          128 + (112 * r - 93.786 * g - 18.214 * b) / 255};
}

struct Differences {
  Difference luma;
  Difference chroma;
};

// YUY2 against a picture in BGRA, whose colour counts in pairs of pixels.
Differences AgainstBgra(const Pixels& yuy2, const Pixels& bgra) {
  Differences differences;
  for (std::size_t at = 0; at < yuy2.size(); at += 4) {
    const Yuv left = YuvOf(&bgra.at(2 * at));
    const Yuv right = YuvOf(&bgra.at(2 * at + 4));
    differences.luma.Add(yuy2.at(at), left.y);
    differences.chroma.Add(yuy2.at(at + 1), (left.u + right.u) / 2);
    differences.luma.Add(yuy2.at(at + 2), right.y);
    differences.chroma.Add(yuy2.at(at + 3), (left.v + right.v) / 2);
  }
  return differences;
}

// --- As coded ---

class MjpegOfHalvedColour : public MjpegPicture, public ::testing::WithParamInterface<Case> {};

TEST_P(MjpegOfHalvedColour, IsInYuy2AsItIsCodedInLimitedRange) {
  const Jpeg jpeg = WavesJpeg(GetParam().width, GetParam().height, GetParam().coding);
  const CodedPlanes planes = PlanesOf(jpeg);
  const Pixels yuy2 = Decode(jpeg, GetParam(), MEDIASUBTYPE_YUY2);
  const auto width = static_cast<std::size_t>(planes.width);
  Differences differences;
  for (std::size_t y = 0; y < GetParam().height; ++y) {
    const std::size_t chromaLine = planes.chromaHeight < planes.height ? y / 2 : y;
    for (std::size_t x = 0; x < width; ++x) {
      const std::size_t at = 2 * (y * width + x);
      const std::size_t chroma = chromaLine * static_cast<std::size_t>(planes.chromaWidth) + x / 2;
      differences.luma.Add(yuy2.at(at), 16 + planes.y.at(y * width + x) * 219.0 / 255);
      const int coded = x % 2 == 0 ? planes.u.at(chroma) : planes.v.at(chroma);
      differences.chroma.Add(yuy2.at(at + 1), 128 + (coded - 128) * 224.0 / 255);
    }
  }
  // Rounding, and a little that steps of 220 and 225 by 256 are beside those of 219 and 224 by 255.
  EXPECT_LE(differences.luma.Greatest(), 0.65) << differences.luma;
  EXPECT_LE(differences.chroma.Greatest(), 0.6) << differences.chroma;
}

TEST_P(MjpegOfHalvedColour, IsInYuy2WhatItIsByWayOfBgraWithinRounding) {
  const Jpeg jpeg = WavesJpeg(GetParam().width, GetParam().height, GetParam().coding);
  const Pixels yuy2 = Decode(jpeg, GetParam(), MEDIASUBTYPE_YUY2);
  const Differences differences = AgainstBgra(yuy2, DecodedByDefault(jpeg));
  EXPECT_LE(differences.luma.Greatest(), 1.5) << differences.luma;
  EXPECT_LE(differences.luma.Mean(), 0.4) << differences.luma;
  EXPECT_LE(differences.luma.Bias(), 0.25) << differences.luma;
  EXPECT_LE(differences.chroma.Greatest(), 3.5) << differences.chroma;
  EXPECT_LE(differences.chroma.Mean(), 0.8) << differences.chroma;
  EXPECT_LE(differences.chroma.Bias(), 0.25) << differences.chroma;
}

TEST_P(MjpegOfHalvedColour, IsInArgbWhatInterpolationMakesOfItWithinALittle) {
  const Jpeg jpeg = WavesJpeg(GetParam().width, GetParam().height, GetParam().coding);
  const std::size_t line = std::size_t{4} * GetParam().width;
  const Pixels bgra = Upright(Decode(jpeg, GetParam(), MEDIASUBTYPE_ARGB32), line);
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
  const Pixels bgra = Decode(jpeg, GetParam(), MEDIASUBTYPE_ARGB32);
  EXPECT_EQ(Upright(bgra, std::size_t{4} * GetParam().width), DecodedByDefault(jpeg));
}

TEST_P(MjpegOfOtherColour, IsInYuy2WhatItIsByWayOfBgra) {
  const Jpeg jpeg = WavesJpeg(GetParam().width, GetParam().height, GetParam().coding);
  const Pixels yuy2 = Decode(jpeg, GetParam(), MEDIASUBTYPE_YUY2);
  const Differences differences = AgainstBgra(yuy2, DecodedByDefault(jpeg));
  EXPECT_LE(differences.luma.Greatest(), 1.5) << differences.luma;
  EXPECT_LE(differences.luma.Mean(), 0.5) << differences.luma;
  EXPECT_LE(differences.chroma.Greatest(), 2) << differences.chroma;
  EXPECT_LE(differences.chroma.Mean(), 0.8) << differences.chroma;
}

INSTANTIATE_TEST_SUITE_P(Cases, MjpegOfOtherColour,
                         ::testing::Values(Case{kFull, 150, 93}, Case{kFlat, 150, 93}, Case{kNarrow, 150, 93},
                                           Case{kProgressive, 150, 93}, Case{kScanned, 150, 93},
                                           Case{kRgb, 150, 93}),
                         kNameOfCase);

// --- Bad ones ---

class BadMjpegToYuy2 : public GraphTest, public ::testing::WithParamInterface<TJSAMP> {
 protected:
  void Deliver(const Jpeg& jpeg) {
    FakeFrame frame;
    frame.bytes = jpeg;
    EXPECT_TRUE(device->Deliver(std::move(frame)));
  }
};

TEST_P(BadMjpegToYuy2, IsDroppedAndTheNextOneIsDecoded) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_YUY2));
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
  EXPECT_EQ(LatestStreamCounters().undecodable + LatestStreamCounters().tooShort, bad + 1);
}

INSTANTIATE_TEST_SUITE_P(Samplings, BadMjpegToYuy2, ::testing::Values(TJSAMP_422, TJSAMP_420, TJSAMP_444),
                         [](const auto& tested) {
                           return tested.param == TJSAMP_422   ? "422"
                                  : tested.param == TJSAMP_420 ? "420"
                                                               : "444";
                         });

}  // namespace
