// Recordings that are made while the camera is viewed.
#include "view/ViewRecording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <optional>

#include "EncodedKeyFrame.h"
#include "LivePackets.h"
#include "Mp4Boxes.h"
#include "Outputs.h"
#include "cli/Failure.h"
#include "support/ScopedTempFolder.h"
#include "support/WaitFor.h"

namespace nuveqcam {
namespace {

using ::testing::HasSubstr;

class Recordings : public ::testing::Test {
 protected:
  void PublishKeyFrame() { stream.Publish(EncodeKeyFrame(64, 48)); }
  void PublishFrame() { stream.Publish(NonIdrSlice()); }
  bool WaitForFrames(std::uint64_t frames) const {
    return WaitFor([&] { return recording->Current().frames == frames; });
  }
  void ExpectFinishFails(const std::string& text) {
    try {
      recording->Finish();
      ADD_FAILURE() << "Finish has not failed";
    } catch (const Failure& failure) {
      EXPECT_THAT(failure.what(), HasSubstr(text));
    }
    EXPECT_THAT(recording->Current().error, HasSubstr(text));
  }

  StopSignals signals;
  LiveStream stream;
  std::optional<ViewRecording> recording;
};

// Zero without a complete file.
std::uint64_t FramesIn(const std::filesystem::path& file) {
  const std::string sizes = BoxAt(ContentOf(file), {"moov", "trak", "mdia", "minf", "stbl", "stsz"});
  return sizes.empty() ? 0 : NumberAt(sizes, 8, 4);
}

TEST_F(Recordings, BeginsWithTheLastKeyFrame) {
  PublishKeyFrame();
  PublishKeyFrame();
  PublishFrame();
  recording.emplace(stream, 30, signals);
  PublishFrame();
  EXPECT_TRUE(recording->Current().isRunning);
  recording->Finish();
  PublishFrame();
  EXPECT_EQ(FramesIn(recording->File()), 3);
  const ViewRecording::Stats stats = recording->Current();
  EXPECT_FALSE(stats.isRunning);
  EXPECT_EQ(stats.frames, 3);
  EXPECT_GT(stats.bytes, 20);
  EXPECT_GT(stats.seconds, 1.0 / 30);
  EXPECT_EQ(stats.error, "");
}

TEST_F(Recordings, WaitsForAKeyFrameIfNoneIsKept) {
  PublishFrame();
  recording.emplace(stream, 30, signals);
  PublishFrame();
  stream.EndSession();
  EXPECT_TRUE(recording->Current().isRunning);
  PublishKeyFrame();
  recording->Finish();
  EXPECT_EQ(FramesIn(recording->File()), 1);
}

TEST_F(Recordings, EndsWithTheSession) {
  PublishKeyFrame();
  recording.emplace(stream, 30, signals);
  PublishFrame();
  stream.EndSession();
  EXPECT_FALSE(recording->Current().isRunning);
  stream.Publish(EncodeKeyFrame(96, 48));
  recording->Finish();
  EXPECT_EQ(FramesIn(recording->File()), 2);
  EXPECT_EQ(recording->Current().error, "");
}

TEST_F(Recordings, FinishFailsWithoutAFrame) {
  recording.emplace(stream, 30, signals);
  ExpectFinishFails("nothing was recorded");
  ExpectFinishFails("nothing was recorded");
  EXPECT_FALSE(recording->Current().isRunning);
}

TEST_F(Recordings, EndsIfTheWriterIsTooSlow) {
  const Packet first = EncodeKeyFrame(64, 48);
  recording.emplace(stream, 30, signals, ViewRecordingLimits{.queuedBytes = first.bytes.size()});
  stream.Publish(first);
  ASSERT_TRUE(WaitForFrames(1));
  EXPECT_TRUE(recording->Current().isRunning);
  // No writer is fast enough for a packet that is larger than the limit.
  stream.Publish(NonIdrSlice(first.bytes.size() + 1));
  PublishFrame();
  EXPECT_FALSE(recording->Current().isRunning);
  EXPECT_THAT(recording->Current().error, HasSubstr("too slowly; choose a smaller size"));
  recording->Finish();
  EXPECT_EQ(FramesIn(recording->File()), 1) << "the file is complete up to there";
}

TEST_F(Recordings, EndsBeforeTheDiskIsFull) {
  std::atomic<std::uintmax_t> space = 1000;
  recording.emplace(stream, 30, signals,
                    ViewRecordingLimits{.freeBytes = 1000, .freeSpaceOf = [&](const auto& folder) {
                                          EXPECT_TRUE(std::filesystem::is_directory(folder));
                                          return space.load();
                                        }});
  space = 999;
  PublishKeyFrame();
  EXPECT_TRUE(WaitFor([&] { return !recording->Current().isRunning; }));
  EXPECT_THAT(recording->Current().error, HasSubstr("is almost full; free some space there"));
  PublishFrame();
  recording->Finish();
  EXPECT_EQ(FramesIn(recording->File()), 1) << "the file is complete up to there";
}

TEST_F(Recordings, DoesNotBeginOnAFullDisk) {
  const ViewRecordingLimits limits{.freeBytes = 1, .freeSpaceOf = [](const auto&) { return 0; }};
  try {
    recording.emplace(stream, 30, signals, limits);
    FAIL() << "the recording has begun";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::kCannotWrite);
    EXPECT_THAT(failure.what(), HasSubstr("is almost full; free some space there"));
  }
}

TEST_F(Recordings, FileCanBeMovedWithoutOverwritingOthers) {
  const ScopedTempFolder folder;
  for (const char* const name : {"camera.mp4", "camera-2.mp4", "camera-3.mp4"}) {
    PublishKeyFrame();
    recording.emplace(stream, 30, signals);
    recording->Finish();
    EXPECT_EQ(recording->FileSize(), std::filesystem::file_size(recording->File()));
    const std::filesystem::path path = recording->MoveTo(folder.Path(), "camera.mp4");
    EXPECT_EQ(path, folder / name);
    recording.reset();
    EXPECT_EQ(FramesIn(path), 1);
  }
}

TEST_F(Recordings, FileIsKeptIfItCannotBeMoved) {
  const ScopedTempFolder folder;
  PublishKeyFrame();
  recording.emplace(stream, 30, signals);
  recording->Finish();
  const std::filesystem::path file = recording->File();
  try {
    recording->MoveTo(folder / "missing", "camera.mp4");
    FAIL() << "the folder is missing";
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("it is kept as " + file.string()));
  }
  recording.reset();
  EXPECT_EQ(FramesIn(file), 1);
  std::filesystem::remove_all(file.parent_path());
}

TEST_F(Recordings, FailedWriteEndsTheRecording) {
  recording.emplace(stream, 30, signals);
  // It begins an MP4 file, but cannot be decoded.
  stream.Publish({{0, 0, 0, 1, 0x67, 1, 0, 0, 0, 1, 0x68, 1, 0, 0, 0, 1, 0x65, 1}, Clock::now()});
  EXPECT_TRUE(WaitFor([&] { return !recording->Current().isRunning; }));
  EXPECT_THAT(recording->Current().error, HasSubstr("the picture size cannot be read"));
  PublishFrame();
  ExpectFinishFails("the picture size cannot be read");
}

TEST_F(Recordings, FileIsRemovedWithTheRecording) {
  PublishKeyFrame();
  recording.emplace(stream, 30, signals);
  const std::filesystem::path file = recording->File();
  recording->Finish();
  EXPECT_TRUE(std::filesystem::exists(file));
  recording.reset();
  EXPECT_FALSE(std::filesystem::exists(file.parent_path()));
  recording.emplace(stream, 30, signals);
  PublishFrame();
  const std::filesystem::path unfinished = recording->File();
  recording.reset();
  EXPECT_FALSE(std::filesystem::exists(unfinished.parent_path()));
}

}  // namespace
}  // namespace nuveqcam
