// MP4 files, and failures of MP4 recordings.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "EncodedKeyFrame.h"
#include "Outputs.h"
#include "TemporaryFolder.h"
#include "cli/Failure.h"
#include "recording/PacketWriter.h"

namespace nuveqcam {
namespace {

using ::testing::HasSubstr;

class Mp4 : public TemporaryFolder {
 protected:
  // The exit code of the failure to write a packet as the first one.
  ExitCode FailureOf(const std::vector<std::uint8_t>& packet) const {
    OutputFile file(NameOf(folder / "a.mp4"), StopSignals());
    const auto writer = MakePacketWriter(OutputKind::kMp4, file, 30);
    try {
      writer->Write({packet, Clock::now()}, {});
    } catch (const Failure& failure) {
      return failure.Code();
    }
    return ExitCode::kOk;
  }
};

// The box of the given type, without its size; empty if there is none.
std::string BoxOf(const std::string& file, const std::string& type) {
  const std::size_t begin = file.find(type);
  return begin == std::string::npos ? std::string() : file.substr(begin);
}

TEST_F(Mp4, HasTheSizeOfTheStream) {
  OutputFile file(NameOf(folder / "a.mp4"), StopSignals());
  const auto writer = MakePacketWriter(OutputKind::kMp4, file, 30);
  writer->Write(EncodeKeyFrame(322, 182), FrameClock::Seconds(0));
  writer->Write(EncodeKeyFrame(322, 182), FrameClock::Seconds(0.04));
  writer->Finish();
  const std::string content = ContentOf(folder / "a.mp4");
  EXPECT_EQ(content.substr(4, 4), "ftyp");
  EXPECT_THAT(BoxOf(content, "mdat"), HasSubstr("moov"));
  // Width and height, 16 bits each, are at a fixed place in the sample description.
  EXPECT_EQ(BoxOf(BoxOf(content, "stsd"), "avc1").substr(28, 4), std::string("\x01\x42\x00\xB6", 4));
}

TEST_F(Mp4, RequiresAKeyFrameFirst) { EXPECT_EQ(FailureOf({0, 0, 0, 1, 0x61, 1}), ExitCode::kUnexpected); }

TEST_F(Mp4, RequiresAKeyFrameThatCanBeDecoded) {
  EXPECT_EQ(FailureOf({0, 0, 0, 1, 0x67, 1, 0, 0, 0, 1, 0x68, 1, 0, 0, 0, 1, 0x65, 1}),
            ExitCode::kCannotWrite);
}

TEST_F(Mp4, RequiresASeekableFile) {
  OutputFile file("-", StopSignals());
  try {
    MakePacketWriter(OutputKind::kMp4, file, 30);
    FAIL() << "no failure for an unseekable file";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::kCannotWrite);
  }
}

}  // namespace
}  // namespace nuveqcam
