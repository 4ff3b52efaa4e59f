// Playing clips of various formats: every picture in order, upright and with its colours.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <libyuv.h>

#include <numeric>

#include "support/simulated/SimulatedCameraHelpers.h"
#include "support/simulated/TestClips.h"

namespace simulated_support {
namespace {

using ::testing::ElementsAre;
using ::testing::Optional;

constexpr std::uint32_t kWidth = 320;
constexpr std::uint32_t kHeight = 240;
constexpr std::uint32_t kPictures = 5;

// The settings of a PC whose camera plays the clip in one format.
simulated::SimulatedPcSettings PlayingAs(const std::filesystem::path& clip,
                                         const graph::VideoFormat& format) {
  simulated::SimulatedPcSettings settings = Playing(clip);
  settings.formats = {format};
  return settings;
}

double Mean(const Bytes& plane) {
  return std::accumulate(plane.begin(), plane.end(), 0.0) / static_cast<double>(plane.size());
}

// Expects the numbered pictures of a clip in a loop.
void ExpectNumberedClip(const std::filesystem::path& clip, const graph::VideoFormat& format) {
  simulated::SimulatedPc pc(PlayingAs(clip, format));
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, format), S_OK);
  for (std::uint32_t i = 0; i < 2 * kPictures + 2; ++i) {
    const Yuv picture = PictureOf(Take(*camera), format);
    ASSERT_FALSE(picture.y.empty());
    EXPECT_THAT(NumberIn(picture), Optional(i % kPictures));
    EXPECT_LT(ColourError(picture), 6);
  }
}

TEST(ClipPlayerTest, PlaysEveryPictureInALoop) {
  const ScopedTempFolder folder;
  WriteY4m(folder / "clip.y4m", NumberedPictures(kWidth, kHeight, kPictures));
  ExpectNumberedClip(folder / "clip.y4m", MakeFormat(graph::kYuyv, kWidth, kHeight));
}

TEST(ClipPlayerTest, PlaysAsMjpg) {
  const ScopedTempFolder folder;
  WriteY4m(folder / "clip.y4m", NumberedPictures(kWidth, kHeight, kPictures));
  ExpectNumberedClip(folder / "clip.y4m", MakeFormat(graph::kMjpg, kWidth, kHeight));
}

TEST(ClipPlayerTest, ScalesUpAndDown) {
  const ScopedTempFolder folder;
  WriteY4m(folder / "clip.y4m", NumberedPictures(kWidth, kHeight, kPictures));
  ExpectNumberedClip(folder / "clip.y4m", MakeFormat(graph::kYuyv, 640, 480));
  ExpectNumberedClip(folder / "clip.y4m", MakeFormat(graph::kYuyv, 160, 120));
}

TEST(ClipPlayerTest, KeepsFullRangeColours) {
  const ScopedTempFolder folder;
  std::vector<Yuv> pictures;
  simulated::NumberedPicture painter(kWidth, kHeight);
  for (std::uint32_t number = 0; number < kPictures; ++number) {
    Yuv picture = PlainPicture(kWidth, kHeight, 0);
    libyuv::ARGBToJ420(painter.Paint(number).data(), 4 * kWidth, picture.y.data(), kWidth, picture.u.data(),
                       kWidth / 2, picture.v.data(), kWidth / 2, kWidth, kHeight);
    pictures.push_back(std::move(picture));
  }
  WriteY4m(folder / "clip.y4m", pictures, "XCOLORRANGE=FULL");
  ExpectNumberedClip(folder / "clip.y4m", MakeFormat(graph::kYuyv, kWidth, kHeight));
}

// A clip of 720 lines or more without a declared matrix is BT.709.
TEST(ClipPlayerTest, KeepsHdColours) {
  const ScopedTempFolder folder;
  WriteY4m(folder / "in.y4m", NumberedPictures(1280, 720, kPictures));
  ASSERT_TRUE(Ffmpeg(
      folder, "-i in.y4m -vf scale=in_color_matrix=bt601:out_color_matrix=bt709 -pix_fmt yuv420p clip.y4m"));
  ExpectNumberedClip(folder / "clip.y4m", MakeFormat(graph::kYuyv, 640, 360));
}

struct ClipCodec {
  std::string name;
  std::string options;  // for ffmpeg
  std::string file;
};
void PrintTo(const ClipCodec& codec, std::ostream* out) { *out << codec.name; }

class ClipCodecTest : public ::testing::TestWithParam<ClipCodec> {};

TEST_P(ClipCodecTest, PlaysEveryPictureWithItsColours) {
  const ClipCodec& codec = GetParam();
  const ScopedTempFolder folder;
  WriteY4m(folder / "in.y4m", NumberedPictures(kWidth, kHeight, kPictures));
  ASSERT_TRUE(Ffmpeg(folder, "-i in.y4m " + codec.options + " " + codec.file));
  ExpectNumberedClip(folder / codec.file, MakeFormat(graph::kYuyv, kWidth, kHeight));
}

INSTANTIATE_TEST_SUITE_P(
    Each, ClipCodecTest,
    ::testing::Values(
        ClipCodec{"MotionJpegInAvi", "-c:v mjpeg -q:v 2 -pix_fmt yuvj420p", "clip.avi"},
        ClipCodec{"WithReorderedPicturesInMp4", "-c:v mpeg4 -bf 2 -q:v 2", "clip.mp4"},
        ClipCodec{"InTheMatrixOfHd",
                  "-vf scale=in_color_matrix=bt601:out_color_matrix=bt709 -colorspace bt709 -c:v ffv1",
                  "clip.mkv"},
        ClipCodec{"InRgb", "-c:v png -pix_fmt rgb24", "clip.mov"},
        ClipCodec{"WithoutAnIndex", "-c:v mpeg4 -q:v 2 -f m4v", "clip.m4v"},
        ClipCodec{"BesideSound", "-f lavfi -i sine=duration=0.1 -c:v mjpeg -q:v 2 -pix_fmt yuvj420p",
                  "clip.avi"}),
    [](const auto& tested) { return tested.param.name; });

// The first picture that the camera delivers.
Yuv FirstPicture(const std::filesystem::path& clip, const graph::VideoFormat& format) {
  simulated::SimulatedPc pc(PlayingAs(clip, format));
  const auto camera = BuiltInCamera(pc);
  EXPECT_EQ(StartWith(*camera, format), S_OK);
  return PictureOf(Take(*camera), format);
}

// Greys reveal a wrong range; saturated colours do not.
TEST(ClipPlayerTest, KeepsGreysInEveryRange) {
  const ScopedTempFolder folder;
  const graph::VideoFormat format = MakeFormat(graph::kYuyv, 64, 48);
  WriteY4m(folder / "limited.y4m", {PlainPicture(64, 48, 60)});
  WriteY4m(folder / "full.y4m", {PlainPicture(64, 48, 60)}, "XCOLORRANGE=FULL");
  ASSERT_TRUE(Ffmpeg(folder, "-i limited.y4m -c:v mjpeg -q:v 2 -pix_fmt yuvj420p jpeg.avi"));
  ASSERT_TRUE(Ffmpeg(folder, "-i limited.y4m -c:v png -pix_fmt rgb24 rgb.mov"));
  EXPECT_NEAR(Mean(FirstPicture(folder / "limited.y4m", format).y), 60, 1.5);
  EXPECT_NEAR(Mean(FirstPicture(folder / "full.y4m", format).y), 16 + 60 * 219.0 / 255, 1.5);
  EXPECT_NEAR(Mean(FirstPicture(folder / "jpeg.avi", format).y), 60, 2);
  EXPECT_NEAR(Mean(FirstPicture(folder / "rgb.mov", format).y), 60, 1.5);
}

TEST(ClipPlayerTest, EveryStartBeginsWithTheFirstPicture) {
  const ScopedTempFolder folder;
  WriteY4m(folder / "clip.y4m", NumberedPictures(kWidth, kHeight, kPictures));
  const graph::VideoFormat format = MakeFormat(graph::kYuyv, kWidth, kHeight);
  simulated::SimulatedPc pc(PlayingAs(folder / "clip.y4m", format));
  const auto camera = BuiltInCamera(pc);
  for (int run = 0; run < 2; ++run) {
    ASSERT_EQ(StartWith(*camera, format), S_OK);
    for (std::uint32_t number = 0; number < 3; ++number) {
      EXPECT_THAT(NumberIn(PictureOf(Take(*camera), format)), Optional(number));
    }
    camera->Stop();
  }
}

TEST(ClipPlayerTest, RepeatsASinglePicture) {
  const ScopedTempFolder folder;
  WriteY4m(folder / "clip.y4m", {PlainPicture(64, 48, 100)});
  const graph::VideoFormat format = MakeFormat(graph::kYuyv, 64, 48);
  simulated::SimulatedPc pc(PlayingAs(folder / "clip.y4m", format));
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, format), S_OK);
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(Mean(PictureOf(Take(*camera), format).y), 100, 1.5);
  }
}

TEST(ClipPlayerTest, PlugInCameraDoesNotPlayTheClip) {
  const ScopedTempFolder folder;
  WriteY4m(folder / "clip.y4m", {PlainPicture(64, 48, 100)});
  simulated::SimulatedPc pc(PlayingAs(folder / "clip.y4m", MakeFormat(graph::kYuyv, 64, 48)));
  const auto camera = PlugInCamera(pc);
  const graph::VideoFormat format = MakeFormat(graph::kMjpg, 1920, 1080, 60);
  ASSERT_EQ(StartWith(*camera, format), S_OK);
  EXPECT_THAT(NumberIn(PictureOf(Take(*camera), format)), Optional(0U));
}

class OddSizeClipTest : public ::testing::TestWithParam<std::pair<std::uint32_t, std::uint32_t>> {};

TEST_P(OddSizeClipTest, FillsThePicture) {
  const auto [width, height] = GetParam();
  const ScopedTempFolder folder;
  WriteY4m(folder / "clip.y4m", {PlainPicture(width, height, 81, 90, 240)});  // red
  for (const graph::VideoFormat& format :
       {MakeFormat(graph::kYuyv, 320, 240), MakeFormat(graph::kYuyv, 64, 48)}) {
    simulated::SimulatedPc pc(PlayingAs(folder / "clip.y4m", format));
    const auto camera = BuiltInCamera(pc);
    ASSERT_EQ(StartWith(*camera, format), S_OK);
    const Yuv picture = PictureOf(Take(*camera), format);
    EXPECT_NEAR(Mean(picture.y), 81, 2);
    EXPECT_NEAR(Mean(picture.u), 90, 2);
    EXPECT_NEAR(Mean(picture.v), 240, 2);
  }
}

INSTANTIATE_TEST_SUITE_P(Each, OddSizeClipTest,
                         ::testing::Values(std::pair{321U, 241U}, std::pair{319U, 239U}, std::pair{121U, 91U},
                                           std::pair{321U, 240U}, std::pair{641U, 481U}),
                         [](const auto& tested) {
                           return std::to_string(tested.param.first) + "x" +
                                  std::to_string(tested.param.second);
                         });

// The luma at 10 %, 50 % and 90 % of a horizontal or vertical line through the centre.
std::vector<int> LumaAcross(const Yuv& picture, bool isVertical) {
  std::vector<int> values;
  for (const std::uint32_t tenth : {1U, 5U, 9U}) {
    const std::uint32_t x = isVertical ? picture.width / 2 : picture.width * tenth / 10;
    const std::uint32_t y = isVertical ? picture.height * tenth / 10 : picture.height / 2;
    values.push_back(picture.y.at(std::size_t{y} * picture.width + x));
  }
  return values;
}

TEST(ClipPlayerTest, AddsBlackBarsForAnotherAspectRatio) {
  const ScopedTempFolder folder;
  WriteY4m(folder / "square.y4m", {PlainPicture(64, 64, 235)});
  WriteY4m(folder / "wide.y4m", {PlainPicture(128, 48, 235)});
  EXPECT_THAT(LumaAcross(FirstPicture(folder / "square.y4m", MakeFormat(graph::kYuyv, 128, 64)), false),
              ElementsAre(16, 235, 16));
  EXPECT_THAT(LumaAcross(FirstPicture(folder / "wide.y4m", MakeFormat(graph::kYuyv, 128, 96)), true),
              ElementsAre(16, 235, 16));
}

TEST(ClipPlayerTest, HonoursThePixelAspectRatio) {
  const ScopedTempFolder folder;
  WriteY4m(folder / "clip.y4m", {PlainPicture(64, 64, 235)}, "A2:1");
  EXPECT_THAT(LumaAcross(FirstPicture(folder / "clip.y4m", MakeFormat(graph::kYuyv, 128, 64)), false),
              ElementsAre(235, 235, 235));
}

TEST(ClipPlayerTest, AddsNoBarsForAlmostEqualAspectRatios) {
  const ScopedTempFolder folder;
  WriteY4m(folder / "clip.y4m", {PlainPicture(854, 480, 235)});
  const Yuv picture = FirstPicture(folder / "clip.y4m", MakeFormat(graph::kYuyv, 1280, 720));
  EXPECT_EQ(picture.y.front(), 235);
  EXPECT_EQ(picture.y.back(), 235);
}

TEST(ClipPlayerTest, AcceptsNamesThatLookLikeProtocolsOrPatterns) {
  const ScopedTempFolder folder;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder.Path());
  for (const char* const name : {"pipe:0.y4m", "concat:a|b.y4m", "100%03d.y4m", "a b.y4m"}) {
    WriteY4m(name, NumberedPictures(64, 48, 1));
    EXPECT_THAT(NumberIn(FirstPicture(name, MakeFormat(graph::kYuyv, 64, 48))), Optional(0U)) << name;
  }
  std::filesystem::current_path(before);
}

}  // namespace
}  // namespace simulated_support
