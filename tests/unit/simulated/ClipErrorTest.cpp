// Clips that cannot be played, or only in part.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "support/simulated/SimulatedCameraHelpers.h"
#include "support/simulated/TestClips.h"

namespace simulated_support {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Optional;
using ::testing::StartsWith;

const graph::VideoFormat kFormat = MakeFormat(graph::kYuyv, 320, 240);

// The error text for a clip that cannot be played; empty if it can.
std::string ErrorText(const std::filesystem::path& clip) {
  try {
    const simulated::SimulatedPc pc(Playing(clip));
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

auto ErrorFor(const std::filesystem::path& clip, const std::string& cause) {
  return AllOf(StartsWith("cannot play " + clip.string() + ": "), HasSubstr(cause));
}

std::string ReadAll(const std::filesystem::path& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

TEST(ClipErrorTest, ReportsAMissingFile) {
  const ScopedTempFolder folder;
  EXPECT_THAT(ErrorText(folder / "none.avi"), ErrorFor(folder / "none.avi", "No such file"));
}

TEST(ClipErrorTest, ReportsAFileThatIsNotAVideo) {
  const ScopedTempFolder folder;
  std::string lines;
  for (int i = 0; i < 3000; ++i) {
    lines += "line " + std::to_string(i) + "\n";
  }
  WriteText(folder / "short.avi", "not a clip\n");
  WriteText(folder / "long.avi", lines);
  WriteText(folder / "long.txt", lines);
  WriteText(folder / "empty.avi", "");
  for (const std::string name : {"short.avi", "long.avi", "long.txt"}) {
    EXPECT_THAT(ErrorText(folder / name), ErrorFor(folder / name, "not a video file"));
  }
  EXPECT_THAT(ErrorText(folder / "empty.avi"), ErrorFor(folder / "empty.avi", ""));
  EXPECT_THAT(ErrorText(folder.Path()), ErrorFor(folder.Path(), ""));
}

TEST(ClipErrorTest, ReportsAFileWithoutVideo) {
  const ScopedTempFolder folder;
  ASSERT_TRUE(Ffmpeg(folder, "-f lavfi -i sine=duration=0.2 sound.wav"));
  EXPECT_THAT(ErrorText(folder / "sound.wav"), ErrorFor(folder / "sound.wav", "it contains no video"));
}

TEST(ClipErrorTest, IgnoresTheCoverOfAMusicFile) {
  const ScopedTempFolder folder;
  WriteY4m(folder / "cover.y4m", {PlainPicture(64, 48, 100)});
  ASSERT_TRUE(Ffmpeg(folder, "-i cover.y4m cover.png"));
  ASSERT_TRUE(Ffmpeg(folder,
                     "-f lavfi -i sine=duration=0.2 -i cover.png -map 0 -map 1 -c:v copy -c:a flac "
                     "-disposition:v attached_pic music.flac"));
  EXPECT_THAT(ErrorText(folder / "music.flac"), ErrorFor(folder / "music.flac", "it contains no video"));
}

TEST(ClipErrorTest, ReportsAClipWithoutPictures) {
  const ScopedTempFolder folder;
  WriteText(folder / "clip.y4m", "YUV4MPEG2 W64 H48 F30:1 Ip C420jpeg\n");
  EXPECT_THAT(ErrorText(folder / "clip.y4m"),
              ErrorFor(folder / "clip.y4m", "none of its pictures can be decoded"));
}

// A Motion JPEG clip with five numbered pictures, each in a "00dc" chunk.
std::filesystem::path MakeAvi(const ScopedTempFolder& folder) {
  WriteY4m(folder / "in.y4m", NumberedPictures(320, 240, 5));
  EXPECT_TRUE(Ffmpeg(folder, "-i in.y4m -c:v mjpeg -q:v 2 -pix_fmt yuvj420p clip.avi"));
  return folder / "clip.avi";
}

// The offset of a JPEG picture.
std::size_t PictureOffset(const std::string& avi, int number) {
  std::size_t at = avi.find("movi");
  for (int i = 0; i <= number; ++i) {
    at = avi.find("00dc", at + 1);
  }
  return at + 8;
}

TEST(ClipErrorTest, SkipsADamagedPictureWithoutOutputOnStderr) {
  const ScopedTempFolder folder;
  const std::filesystem::path clip = MakeAvi(folder);
  std::string avi = ReadAll(clip);
  avi.replace(PictureOffset(avi, 2), 600, 600, '\0');
  WriteText(clip, avi);
  testing::internal::CaptureStderr();
  simulated::SimulatedPc pc(Playing(clip));
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kFormat), S_OK);
  for (const std::uint32_t number : {0U, 1U, 3U, 4U, 0U, 1U, 3U}) {
    EXPECT_THAT(NumberIn(PictureOf(Take(*camera), kFormat)), Optional(number));
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(ClipErrorTest, PlaysTheRestOfATruncatedClip) {
  const ScopedTempFolder folder;
  const std::filesystem::path clip = MakeAvi(folder);
  const std::string avi = ReadAll(clip);
  WriteText(clip, avi.substr(0, PictureOffset(avi, 3) - 8));
  simulated::SimulatedPc pc(Playing(clip));
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kFormat), S_OK);
  for (const std::uint32_t number : {0U, 1U, 2U, 0U, 1U, 2U}) {
    EXPECT_THAT(NumberIn(PictureOf(Take(*camera), kFormat)), Optional(number));
  }
}

TEST(ClipErrorTest, DisconnectsIfTheFileIsRemovedWhilePlaying) {
  const ScopedTempFolder folder;
  WriteY4m(folder / "clip.y4m", NumberedPictures(320, 240, 3));
  simulated::SimulatedPc pc(Playing(folder / "clip.y4m"));
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kFormat), S_OK);
  std::filesystem::remove(folder / "clip.y4m");
  for (std::uint32_t number = 0; number < 3; ++number) {
    EXPECT_THAT(NumberIn(PictureOf(Take(*camera), kFormat)), Optional(number));
  }
  graph::CapturedFrame frame;
  EXPECT_EQ(camera->Next(FarDeadline(), frame), graph::CaptureResult::kDisconnected);
  EXPECT_EQ(camera->Next(FarDeadline(), frame), graph::CaptureResult::kDisconnected);
  camera->Stop();
  EXPECT_EQ(camera->Start(), com::kDeviceIoError);
  // A failed start must release the camera.
  WriteY4m(folder / "clip.y4m", NumberedPictures(320, 240, 3));
  EXPECT_EQ(StartWith(*BuiltInCamera(pc), kFormat), S_OK);
}

}  // namespace
}  // namespace simulated_support
