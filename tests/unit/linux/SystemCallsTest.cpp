// The real system calls, on a file and an eventfd instead of a device.
#include "v4l2/SystemCalls.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

namespace linux_support {
namespace {

constexpr char kText[] = "text";

class SystemCallsTest : public ::testing::Test {
 protected:
  // Creates a file with the text.
  void SetUp() override {
    ASSERT_NE(m_file, nullptr);
    ASSERT_EQ(std::fputs(kText, m_file.get()), 1);
    ASSERT_EQ(std::fflush(m_file.get()), 0);
    m_path = "/proc/self/fd/" + std::to_string(fileno(m_file.get()));
  }

  v4l2::SystemCalls calls;
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_file{std::tmpfile(), &std::fclose};
  std::string m_path;
};

TEST_F(SystemCallsTest, FileCanBeOpenedQueriedAndClosed) {
  const int descriptor = calls.Open(m_path.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(descriptor, 0);
  EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
  int readable = 0;
  EXPECT_EQ(calls.Ioctl(descriptor, FIONREAD, &readable), 0);
  EXPECT_EQ(readable, 4);
  EXPECT_EQ(calls.Close(descriptor), 0);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1) << "closed";
}

TEST_F(SystemCallsTest, MappingIsSharedWithTheFile) {
  const int descriptor = calls.Open(m_path.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(descriptor, 0);
  void* const address = calls.Map(sizeof(kText), descriptor, 0);
  ASSERT_NE(address, MAP_FAILED);
  ASSERT_NE(address, nullptr);
  auto* const text = static_cast<char*>(address);
  EXPECT_STREQ(text, kText);
  text[0] = 'n';
  char first = 0;
  EXPECT_EQ(pread(descriptor, &first, 1, 0), 1);
  EXPECT_EQ(first, 'n');
  EXPECT_EQ(calls.Unmap(address, sizeof(kText)), 0);
  calls.Close(descriptor);
}

TEST_F(SystemCallsTest, PollReturnsTheNumberOfReadyDescriptors) {
  const int descriptor = eventfd(0, EFD_CLOEXEC);
  pollfd entry{descriptor, POLLIN, 0};
  EXPECT_EQ(calls.Poll(&entry, 1, 0), 0);
  ASSERT_EQ(eventfd_write(descriptor, 1), 0);
  EXPECT_EQ(calls.Poll(&entry, 1, -1), 1);
  EXPECT_EQ(entry.revents, POLLIN);
  close(descriptor);
}

TEST_F(SystemCallsTest, FailuresSetErrno) {
  errno = 0;
  EXPECT_EQ(calls.Open("/nowhere", O_RDWR | O_CLOEXEC), -1);
  EXPECT_EQ(errno, ENOENT);
  int unread = 0;
  EXPECT_EQ(calls.Ioctl(-1, FIONREAD, &unread), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(SystemCallsTest, RootsAreThoseOfTheSystem) {
  EXPECT_EQ(calls.SysfsRoot(), "/sys");
  EXPECT_EQ(calls.DevRoot(), "/dev");
}

}  // namespace
}  // namespace linux_support
