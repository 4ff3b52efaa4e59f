// Decoded MJPEG pictures, compared sample by sample with libjpeg's default decoding.
#include <algorithm>
#include <array>
#include <cmath>
#include <ostream>

#include "support/linux/CaptureGraphTest.h"
#include "support/linux/TestJpegs.h"

namespace linux_support {
namespace {

constexpr JpegCoding k422{"422", 2, 1, 1, false};
constexpr JpegCoding k422TwoRows{"422TwoRows", 2, 2, 2, false};  // two rows of blocks in each MCU
constexpr JpegCoding k420{"420", 2, 2, 1, false};
constexpr JpegCoding k444{"444", 1, 1, 1, false};
constexpr JpegCoding k440{"440", 1, 2, 1, false};
constexpr JpegCoding k411{"411", 4, 1, 1, false};
constexpr JpegCoding kProgressive422{"Progressive422", 2, 1, 1, true};
constexpr JpegCoding kMultiScan422{"MultiScan422", 2, 1, 1, false, true};
constexpr JpegCoding kRgb422{"Rgb422", 2, 1, 1, false, false, true};
// One chroma component has more samples than the other.
constexpr JpegCoding kTallCb{"TallCb", 2, 2, 2, false, false, false, 1, 1, 1};
constexpr JpegCoding kTallCr{"TallCr", 2, 2, 1, false, false, false, 1, 1, 2};
constexpr JpegCoding kWideCb{"WideCb", 2, 1, 1, false, false, false, 2, 1};
constexpr JpegCoding kWideCr{"WideCr", 2, 1, 1, false, false, false, 1, 2};

struct Case {
  JpegCoding coding;
  unsigned width;
  unsigned height;

  friend std::ostream& operator<<(std::ostream& out, const Case& tested) {
    return out << tested.coding.name << ' ' << tested.width << 'x' << tested.height;
  }
};

// Statistics of the differences between decoded and expected samples.
class Difference {
 public:
  void Add(int value, double expected) {
    const double error = value - expected;
    m_max = std::max(m_max, std::abs(error));
    m_sum += error;
    m_absoluteSum += std::abs(error);
    ++m_count;
  }
  double Max() const { return m_max; }
  double Mean() const { return m_absoluteSum / m_count; }
  double Bias() const { return std::abs(m_sum / m_count); }

  friend std::ostream& operator<<(std::ostream& out, const Difference& difference) {
    return out << "max " << difference.Max() << ", mean " << difference.Mean() << ", bias "
               << difference.Bias();
  }

 private:
  double m_max = 0;
  double m_sum = 0;
  double m_absoluteSum = 0;
  int m_count = 0;
};

class MjpegPictureTest : public CaptureGraphTest {
 protected:
  // Streams the JPEG from a camera of that size. Returns the picture that the callback receives.
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

// --- Subsampled chroma, decoded without libjpeg's interpolation ---

class SubsampledMjpegTest : public MjpegPictureTest, public ::testing::WithParamInterface<Case> {};

TEST_P(SubsampledMjpegTest, IsCloseToInterpolatedChroma) {
  const Jpeg jpeg = WaveJpeg(GetParam().width, GetParam().height, GetParam().coding);
  const std::size_t line = std::size_t{4} * GetParam().width;
  const Pixels bgra = Upright(Decode(jpeg, GetParam()), line);
  const Pixels expected = DecodeWithLibjpegDefaults(jpeg);
  Difference difference;
  for (std::size_t at = 0; at < bgra.size(); ++at) {
    difference.Add(bgra[at], expected[at]);
  }
  EXPECT_LE(difference.Max(), 9) << difference;
  EXPECT_LE(difference.Mean(), 1.1) << difference;
  EXPECT_LE(difference.Bias(), 0.1) << difference;
}

TEST_P(SubsampledMjpegTest, RepeatsChromaIfThatIsFaster) {
  const Jpeg jpeg = WaveJpeg(GetParam().width, GetParam().height, GetParam().coding);
  const Pixels bgra = Upright(Decode(jpeg, GetParam()), std::size_t{4} * GetParam().width);
  // libjpeg upsamples and converts in one pass only if each chroma component has one block in an MCU.
  const bool isFaster = GetParam().coding.chromaVertical == 1;
  EXPECT_EQ(bgra, isFaster ? DecodeWithRepeatedChroma(jpeg) : DecodeWithLibjpegDefaults(jpeg));
}

const auto kNameOfCase = [](const auto& tested) {
  return std::string(tested.param.coding.name) + "Of" + std::to_string(tested.param.width) + "x" +
         std::to_string(tested.param.height);
};

// Sizes of whole MCUs, with partial MCUs at the right and the bottom, and smaller than one MCU.
INSTANTIATE_TEST_SUITE_P(Cases, SubsampledMjpegTest,
                         ::testing::Values(Case{k422, 160, 96}, Case{k422, 162, 93}, Case{k422, 150, 1},
                                           Case{k422TwoRows, 160, 96}, Case{k422TwoRows, 146, 91},
                                           Case{k420, 160, 96}, Case{k420, 162, 97}, Case{k420, 134, 90}),
                         kNameOfCase);

// --- All other codings ---

class ExactMjpegTest : public MjpegPictureTest, public ::testing::WithParamInterface<Case> {};

TEST_P(ExactMjpegTest, EqualsLibjpegsDefaultDecoding) {
  const Jpeg jpeg = WaveJpeg(GetParam().width, GetParam().height, GetParam().coding);
  const Pixels bgra = Decode(jpeg, GetParam());
  EXPECT_EQ(Upright(bgra, std::size_t{4} * GetParam().width), DecodeWithLibjpegDefaults(jpeg));
}

INSTANTIATE_TEST_SUITE_P(Cases, ExactMjpegTest,
                         ::testing::Values(Case{k444, 150, 93}, Case{k440, 150, 93}, Case{k411, 150, 93},
                                           Case{kProgressive422, 150, 93}, Case{kMultiScan422, 150, 93},
                                           Case{kRgb422, 150, 93}, Case{kTallCb, 150, 93},
                                           Case{kTallCr, 150, 93}, Case{kWideCb, 150, 93},
                                           Case{kWideCr, 150, 93}),
                         kNameOfCase);

}  // namespace
}  // namespace linux_support
