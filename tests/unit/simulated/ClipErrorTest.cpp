// Files that cannot be played, or not all of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "support/simulated/Cameras.h"
#include "support/simulated/Clips.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Optional;
using ::testing::StartsWith;

const graph::VideoFormat kFormat = MakeFormat(graph::kYuyv, 320, 240);

simulated::SimulatedPcSettings Playing(const std::filesystem::path& clip) {
  simulated::SimulatedPcSettings settings = Unpaced();
  settings.clip = clip.string();
  return settings;
}

// What people are told of a clip that cannot be played; empty for one that can.
std::string Complaint(const std::filesystem::path& clip) {
  try {
    const simulated::SimulatedPc pc(Playing(clip));
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

auto SaysOf(const std::filesystem::path& clip, const std::string& cause) {
  return AllOf(StartsWith("cannot play " + clip.string() + ": "), HasSubstr(cause));
}

std::string ReadAll(const std::filesystem::path& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

TEST(ClipError, NamesAFileThatIsMissing) {
  const TestFolder folder;
  EXPECT_THAT(Complaint(folder / "none.avi"), SaysOf(folder / "none.avi", "No such file"));
}

TEST(ClipError, NamesAFileThatIsNoVideo) {
  const TestFolder folder;
  std::string lines;
  for (int i = 0; i < 3000; ++i) {
    lines += "line " + std::to_string(i) + "\n";
  }
  WriteText(folder / "short.avi", "not a clip\n");
  WriteText(folder / "long.avi", lines);
  WriteText(folder / "long.txt", lines);
  WriteText(folder / "empty.avi", "");
  for (const std::string name : {"short.avi", "long.avi", "long.txt"}) {
    EXPECT_THAT(Complaint(folder / name), SaysOf(folder / name, "not a video file"));
  }
  EXPECT_THAT(Complaint(folder / "empty.avi"), SaysOf(folder / "empty.avi", ""));
  EXPECT_THAT(Complaint(folder.Path()), SaysOf(folder.Path(), ""));
}

TEST(ClipError, NamesAFileOfSoundAlone) {
  const TestFolder folder;
  ASSERT_TRUE(Ffmpeg(folder, "-f lavfi -i sine=duration=0.2 sound.wav"));
  EXPECT_THAT(Complaint(folder / "sound.wav"), SaysOf(folder / "sound.wav", "no video in it"));
}

TEST(ClipError, TakesTheCoverOfMusicForNoVideo) {
  const TestFolder folder;
  WriteY4m(folder / "cover.y4m", {PlainPicture(64, 48, 100)});
  ASSERT_TRUE(Ffmpeg(folder, "-i cover.y4m cover.png"));
  ASSERT_TRUE(Ffmpeg(folder,
                     "-f lavfi -i sine=duration=0.2 -i cover.png -map 0 -map 1 -c:v copy -c:a flac "
                     "-disposition:v attached_pic music.flac"));
  EXPECT_THAT(Complaint(folder / "music.flac"), SaysOf(folder / "music.flac", "no video in it"));
}

TEST(ClipError, NamesAClipWithoutAPicture) {
  const TestFolder folder;
  WriteText(folder / "clip.y4m", "YUV4MPEG2 W64 H48 F30:1 Ip C420jpeg\n");
  EXPECT_THAT(Complaint(folder / "clip.y4m"), SaysOf(folder / "clip.y4m", "no picture"));
}

// A Motion JPEG clip of five numbered pictures, each a chunk "00dc" with its length before it.
std::filesystem::path MakeAvi(const TestFolder& folder) {
  WriteY4m(folder / "in.y4m", NumberedPictures(320, 240, 5));
  EXPECT_TRUE(Ffmpeg(folder, "-i in.y4m -c:v mjpeg -q:v 2 -pix_fmt yuvj420p clip.avi"));
  return folder / "clip.avi";
}

// Where the JPEG picture of that number begins.
std::size_t PictureAt(const std::string& avi, int number) {
  std::size_t at = avi.find("movi");
  for (int i = 0; i <= number; ++i) {
    at = avi.find("00dc", at + 1);
  }
  return at + 8;
}

TEST(ClipError, LeavesADamagedPictureOutWithoutAWordOnStandardError) {
  const TestFolder folder;
  const std::filesystem::path clip = MakeAvi(folder);
  std::string avi = ReadAll(clip);
  avi.replace(PictureAt(avi, 2), 600, 600, '\0');
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

TEST(ClipError, PlaysWhatThereIsOfATruncatedClip) {
  const TestFolder folder;
  const std::filesystem::path clip = MakeAvi(folder);
  const std::string avi = ReadAll(clip);
  WriteText(clip, avi.substr(0, PictureAt(avi, 3) - 8));
  simulated::SimulatedPc pc(Playing(clip));
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kFormat), S_OK);
  for (const std::uint32_t number : {0U, 1U, 2U, 0U, 1U, 2U}) {
    EXPECT_THAT(NumberIn(PictureOf(Take(*camera), kFormat)), Optional(number));
  }
}

TEST(ClipError, IsALostCameraWhenTheFileGoesWhileItIsPlayed) {
  const TestFolder folder;
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
  // A start that failed leaves the camera free.
  WriteY4m(folder / "clip.y4m", NumberedPictures(320, 240, 3));
  EXPECT_EQ(StartWith(*BuiltInCamera(pc), kFormat), S_OK);
}

}  // namespace
