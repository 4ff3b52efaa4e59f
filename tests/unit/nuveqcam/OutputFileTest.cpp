#include "recording/OutputFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "Outputs.h"
#include "TemporaryFolder.h"
#include "cli/Failure.h"

namespace nuveqcam {
namespace {

using ::testing::HasSubstr;

using Output = TemporaryFolder;

TEST_F(Output, HasTheWrittenContent) {
  OutputFile file(NameOf(folder / "a"), StopSignals());
  Write(file, "one ");
  Write(file, "two");
  file.Close();
  EXPECT_EQ(ContentOf(folder / "a"), "one two");
}

TEST_F(Output, TruncatesAnExistingFileOnFirstWrite) {
  std::ofstream(folder / "a") << "earlier and longer";
  {
    // Destroyed at once.
    const OutputFile file(NameOf(folder / "a"), StopSignals());
  }
  EXPECT_EQ(ContentOf(folder / "a"), "earlier and longer");
  OutputFile file(NameOf(folder / "a"), StopSignals());
  Write(file, "new");
  EXPECT_EQ(ContentOf(folder / "a"), "new");
}

TEST_F(Output, RemovesANewFileIfNothingWasWritten) {
  {
    // Destroyed at once.
    const OutputFile file(NameOf(folder / "a"), StopSignals());
  }
  EXPECT_FALSE(std::filesystem::exists(folder / "a"));
}

TEST_F(Output, IsSameAsEachOfItsPaths) {
  std::ofstream(folder / "a") << "a";
  std::ofstream(folder / "b") << "a";
  std::filesystem::create_hard_link(folder / "a", folder / "second");
  const OutputFile file(NameOf(folder / "a"), StopSignals());
  for (const char* const name : {"a", "./a", "second"}) {
    EXPECT_TRUE(file.IsSameAs(NameOf(folder / name))) << name;
  }
  EXPECT_FALSE(file.IsSameAs(NameOf(folder / "b")));
  EXPECT_FALSE(file.IsSameAs(NameOf(folder / "missing")));
  EXPECT_FALSE(file.IsSameAs(""));
}

TEST_F(Output, FailureNamesTheOption) {
  try {
    const OutputFile file(NameOf(folder / "missing" / "a"), StopSignals(), "TMPDIR");
    FAIL() << "no failure in a missing folder";
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("create the folder first or choose another file with TMPDIR"));
  }
}

TEST_F(Output, IsSeekable) {
  OutputFile file(NameOf(folder / "a"), StopSignals());
  ASSERT_TRUE(file.CanSeek());
  Write(file, "abcdef");
  EXPECT_EQ(file.Seek(2, SEEK_SET), 2);
  Write(file, "X");
  EXPECT_EQ(file.Seek(0, SEEK_END), 6);
  EXPECT_EQ(ContentOf(folder / "a"), "abXdef");
}

TEST_F(Output, MissingFolderFailsWithTheNextStep) {
  try {
    const OutputFile file(NameOf(folder / "no" / "a"), StopSignals());
    FAIL() << "no failure for a missing folder";
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("create the folder first"));
  }
}

}  // namespace
}  // namespace nuveqcam
