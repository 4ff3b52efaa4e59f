// Output to symbolic links, named pipes and devices.
#include "recording/OutputFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <future>

#include <sys/stat.h>

#include "Outputs.h"
#include "TemporaryFolder.h"
#include "cli/Failure.h"

namespace nuveqcam {
namespace {

using ::testing::HasSubstr;

using OutputLink = TemporaryFolder;

TEST_F(OutputLink, DanglingLinkStaysDanglingIfNothingWasWritten) {
  std::filesystem::create_symlink("target", folder / "link");
  {
    // Destroyed at once.
    const OutputFile file(NameOf(folder / "link"), StopSignals());
  }
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
  EXPECT_FALSE(std::filesystem::exists(folder / "target"));
  OutputFile file(NameOf(folder / "link"), StopSignals());
  Write(file, "kept");
  EXPECT_EQ(ContentOf(folder / "target"), "kept");
}

TEST_F(OutputLink, TargetKeepsItsContentIfNothingWasWritten) {
  std::ofstream(folder / "target") << "earlier";
  std::filesystem::create_symlink("target", folder / "link");
  {
    // Destroyed at once.
    const OutputFile file(NameOf(folder / "link"), StopSignals());
  }
  EXPECT_EQ(ContentOf(folder / "target"), "earlier");
}

TEST_F(OutputLink, IsSameAsItsTarget) {
  std::ofstream(folder / "a") << "a";
  std::filesystem::create_symlink("a", folder / "link");
  const OutputFile file(NameOf(folder / "a"), StopSignals());
  EXPECT_TRUE(file.IsSameAs(NameOf(folder / "link")));
}

using OutputPipe = TemporaryFolder;

TEST_F(OutputPipe, WaitsForAReader) {
  const std::string name = NameOf(folder / "pipe");
  ASSERT_EQ(mkfifo(name.c_str(), 0600), 0);
  auto read = std::async(std::launch::async, [&] { return ContentOf(folder / "pipe"); });
  {
    OutputFile file(name, StopSignals());
    Write(file, "through");
  }
  EXPECT_EQ(read.get(), "through");
}

TEST_F(OutputPipe, StopSignalEndsTheWaitForAReader) {
  const std::string name = NameOf(folder / "pipe");
  ASSERT_EQ(mkfifo(name.c_str(), 0600), 0);
  const StopSignals signals;
  raise(SIGTERM);
  try {
    const OutputFile file(name, signals);
    FAIL() << "no failure without a reader";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::kEndedEarly);
    EXPECT_THAT(failure.what(), HasSubstr("interrupted before a program opened "));
  }
}

TEST(OutputDevice, FullDeviceFailsWithTheCause) {
  OutputFile file("/dev/full", StopSignals());
  EXPECT_FALSE(file.CanSeek());
  try {
    Write(file, "x");
    FAIL() << "no failure on a full device";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::kCannotWrite);
    EXPECT_STREQ(failure.what(),
                 "cannot write /dev/full: No space left on device; free some space there or choose another "
                 "place with -o");
  }
}

}  // namespace
}  // namespace nuveqcam
