// Outputs that other systems do not have, or not for everybody: symbolic links, devices.
#include "OutputFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "Failure.h"
#include "Outputs.h"
#include "TemporaryFolder.h"

namespace {

using OutputLink = TemporaryFolder;

TEST_F(OutputLink, ThatLeadsNowhereLeadsNowhereAgainWhenNothingWasWritten) {
  std::filesystem::create_symlink("target", folder / "link");
  { const OutputFile file(NameOf(folder / "link")); }
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
  EXPECT_FALSE(std::filesystem::exists(folder / "target"));
  OutputFile file(NameOf(folder / "link"));
  Write(file, "kept");
  EXPECT_EQ(ContentOf(folder / "target"), "kept");
}

TEST_F(OutputLink, ToAnEarlierFileLeavesItWhenNothingWasWritten) {
  std::ofstream(folder / "target") << "earlier";
  std::filesystem::create_symlink("target", folder / "link");
  { const OutputFile file(NameOf(folder / "link")); }
  EXPECT_EQ(ContentOf(folder / "target"), "earlier");
}

TEST_F(OutputLink, IsAnotherNameOfTheFile) {
  std::ofstream(folder / "a") << "a";
  std::filesystem::create_symlink("a", folder / "link");
  const OutputFile file(NameOf(folder / "a"));
  EXPECT_TRUE(file.IsSameAs(NameOf(folder / "link")));
}

TEST(OutputDevice, WithoutRoomIsAFailureWithTheCause) {
  OutputFile file("/dev/full");
  EXPECT_FALSE(file.CanSeek());
  try {
    Write(file, "x");
    FAIL() << "wrote to a full device";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::kCannotWrite);
    EXPECT_STREQ(
        failure.what(),
        "cannot write /dev/full: No space left on device; make room there or choose another place with -o");
  }
}

}  // namespace
