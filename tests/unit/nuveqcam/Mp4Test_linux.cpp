// Failures of MP4 recordings.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TemporaryFolder.h"
#include "cli/Failure.h"
#include "recording/PacketWriter.h"

namespace nuveqcam {
namespace {

using Mp4 = TemporaryFolder;

TEST_F(Mp4, RequiresAKeyFrameFirst) {
  OutputFile file(NameOf(folder / "a.mp4"), StopSignals());
  const auto writer = MakePacketWriter(OutputKind::kMp4, file, 30);
  try {
    writer->Write({{0, 0, 0, 1, 0x61, 1}, Clock::now()}, {});
    FAIL() << "no failure without a key frame";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::kUnexpected);
  }
}

TEST_F(Mp4, RequiresASeekableFile) {
  OutputFile file("/dev/null", StopSignals());
  try {
    MakePacketWriter(OutputKind::kMp4, file, 30);
    FAIL() << "no failure for an unseekable file";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::kCannotWrite);
  }
}

}  // namespace
}  // namespace nuveqcam
