#include "OutputFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "Failure.h"
#include "TemporaryFolder.h"

namespace {

using ::testing::HasSubstr;

std::string ContentOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void Write(OutputFile& file, std::string_view text) {
  file.Write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

using Output = TemporaryFolder;

TEST_F(Output, HoldsWhatWasWritten) {
  OutputFile file((folder / "a").string());
  Write(file, "one ");
  Write(file, "two");
  file.Close();
  EXPECT_EQ(ContentOf(folder / "a"), "one two");
}

TEST_F(Output, ReplacesAnEarlierFileWithTheFirstWriteOnly) {
  std::ofstream(folder / "a") << "earlier and longer";
  { const OutputFile file((folder / "a").string()); }
  EXPECT_EQ(ContentOf(folder / "a"), "earlier and longer");
  OutputFile file((folder / "a").string());
  Write(file, "new");
  EXPECT_EQ(ContentOf(folder / "a"), "new");
}

TEST_F(Output, RemovesAFileOfItsOwnThatNothingWasWrittenTo) {
  { const OutputFile file((folder / "a").string()); }
  EXPECT_FALSE(std::filesystem::exists(folder / "a"));
}

TEST_F(Output, LinkThatLeadsNowhereLeadsNowhereAgainWhenNothingWasWritten) {
  std::filesystem::create_symlink("target", folder / "link");
  { const OutputFile file((folder / "link").string()); }
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
  EXPECT_FALSE(std::filesystem::exists(folder / "target"));
  OutputFile file((folder / "link").string());
  Write(file, "kept");
  EXPECT_EQ(ContentOf(folder / "target"), "kept");
}

TEST_F(Output, LinkToAnEarlierFileLeavesItWhenNothingWasWritten) {
  std::ofstream(folder / "target") << "earlier";
  std::filesystem::create_symlink("target", folder / "link");
  { const OutputFile file((folder / "link").string()); }
  EXPECT_EQ(ContentOf(folder / "target"), "earlier");
}

TEST_F(Output, KnowsItselfByEveryName) {
  std::ofstream(folder / "a") << "a";
  std::ofstream(folder / "b") << "a";
  std::filesystem::create_symlink("a", folder / "link");
  std::filesystem::create_hard_link(folder / "a", folder / "second");
  const OutputFile file((folder / "a").string());
  for (const char* const name : {"a", "./a", "link", "second"}) {
    EXPECT_TRUE(file.IsSameAs((folder / name).string())) << name;
  }
  EXPECT_FALSE(file.IsSameAs((folder / "b").string()));
  EXPECT_FALSE(file.IsSameAs((folder / "missing").string()));
  EXPECT_FALSE(file.IsSameAs(""));
}

TEST_F(Output, CanGoBack) {
  OutputFile file((folder / "a").string());
  ASSERT_TRUE(file.CanSeek());
  Write(file, "abcdef");
  EXPECT_EQ(file.Seek(2, SEEK_SET), 2);
  Write(file, "X");
  EXPECT_EQ(file.Seek(0, SEEK_END), 6);
  EXPECT_EQ(ContentOf(folder / "a"), "abXdef");
}

TEST_F(Output, DeviceWithoutRoomIsAFailureWithTheCause) {
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

TEST_F(Output, MissingFolderIsAFailureWithTheNextStep) {
  try {
    const OutputFile file((folder / "no" / "a").string());
    FAIL() << "opened a file in a folder that is missing";
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("make the folder first"));
  }
}

}  // namespace
