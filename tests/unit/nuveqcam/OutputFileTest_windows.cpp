// Output to files and pipes on Windows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include "Outputs.h"
#include "TemporaryFolder.h"
#include "cli/Failure.h"
#include "cli/WideText.h"

namespace nuveqcam {
namespace {

using ::testing::HasSubstr;
using Output = TemporaryFolder;

// The message of the failure to open the file; empty if it succeeds.
std::string OpenFailure(const std::string& name) {
  try {
    const OutputFile file(name, StopSignals());
    return {};
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::kCannotWrite);
    return failure.what();
  }
}

TEST_F(Output, IsReadableWhileItIsWritten) {
  OutputFile file(NameOf(folder / "a"), StopSignals());
  Write(file, "so far");
  EXPECT_EQ(ContentOf(folder / "a"), "so far");
}

TEST_F(Output, IsNotWritableTwice) {
  const OutputFile file(NameOf(folder / "a"), StopSignals());
  EXPECT_THAT(OpenFailure(NameOf(folder / "a")),
              HasSubstr("; close the program that uses it or choose another"));
}

TEST_F(Output, FolderIsRejected) {
  EXPECT_THAT(OpenFailure(NameOf(folder)), HasSubstr("; choose another file with -o"));
}

TEST_F(Output, EmptyNameIsRejected) { EXPECT_NE(OpenFailure(""), ""); }

// The reading end of a named pipe.
class OutputPipe : public ::testing::Test {
 protected:
  void SetUp() override {
    m_name = R"(\\.\pipe\nuveqcam-test-)" + std::to_string(GetCurrentProcessId());
    m_reader = CreateNamedPipeW(ToWide(m_name).c_str(), PIPE_ACCESS_INBOUND, PIPE_TYPE_BYTE | PIPE_WAIT, 1,
                                4096, 4096, 0, nullptr);
    ASSERT_NE(m_reader, INVALID_HANDLE_VALUE);
  }
  void TearDown() override { CloseReader(); }

  void CloseReader() {
    if (m_reader != INVALID_HANDLE_VALUE) {
      CloseHandle(std::exchange(m_reader, INVALID_HANDLE_VALUE));
    }
  }

  std::string m_name;
  HANDLE m_reader = INVALID_HANDLE_VALUE;
};

TEST_F(OutputPipe, IsWritableAndNotSeekable) {
  OutputFile file(m_name, StopSignals());
  EXPECT_FALSE(file.CanSeek());
  Write(file, "through");
  std::array<char, 16> read{};
  DWORD count = 0;
  ASSERT_NE(ReadFile(m_reader, read.data(), static_cast<DWORD>(read.size()), &count, nullptr), FALSE);
  EXPECT_EQ(std::string(read.data(), count), "through");
}

TEST_F(OutputPipe, WithoutAReaderFailsWithTheCause) {
  OutputFile file(m_name, StopSignals());
  CloseReader();
  try {
    Write(file, "x");
    FAIL() << "no failure without a reader";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::kCannotWrite);
    EXPECT_THAT(failure.what(), HasSubstr("; the program that reads it has exited"));
  }
}

}  // namespace
}  // namespace nuveqcam
