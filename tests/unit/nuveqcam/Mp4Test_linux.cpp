// MP4 recordings that cannot be made.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TemporaryFolder.h"
#include "cli/Failure.h"
#include "recording/PacketWriter.h"

namespace {

using Mp4 = TemporaryFolder;

TEST_F(Mp4, NeedsAKeyFrameFirst) {
  OutputFile file(NameOf(folder / "a.mp4"), StopSignals());
  const auto writer = MakePacketWriter(OutputKind::kMp4, file, 30);
  try {
    writer->Write({{0, 0, 0, 1, 0x61, 1}, Clock::now()}, {});
    FAIL() << "began with a frame that cannot be decoded";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::kUnexpected);
  }
}

TEST_F(Mp4, NeedsAFileThatCanBeRewound) {
  OutputFile file("/dev/null", StopSignals());
  try {
    MakePacketWriter(OutputKind::kMp4, file, 30);
    FAIL() << "took a file that cannot be rewound";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::kCannotWrite);
  }
}

}  // namespace
