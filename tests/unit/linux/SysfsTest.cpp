// Reading of sysfs attributes that arrive in pieces, and the descriptors that it uses.
#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <new>
#include <string>
#include <thread>

#include "support/FailingSystemCall_linux.h"
#include "support/SystemCallOf_linux.h"
#include "support/linux/LinuxTest.h"

namespace linux_support {
namespace {

using support::SystemCallOf;
using support::WithFailingSystemCall;

constexpr std::size_t kMaxAttributeSize = 4096;  // a page

// The product name of a USB device is a pipe that the test writes while the platform reads it.
class SlowAttributeTest : public LinuxTest {
 protected:
  void SetUp() override {
    LinuxTest::SetUp();
    kernel.Tree().AddUsb({"1-5"});
    m_file = std::filesystem::canonical(kernel.SysfsRoot() / "bus/usb/devices/1-5") / "product";
    std::filesystem::remove(m_file);
    ASSERT_EQ(mkfifo(m_file.c_str(), 0600), 0);
    m_reader = std::thread([this] {
      m_readerId = gettid();
      m_name = devices::CurrentDeviceProvider()->DescribeUsbDevices().front().name;
    });
    // Waits until the platform has opened the pipe.
    m_pipe = open(m_file.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(m_pipe, 0);
  }
  void TearDown() override {
    Finish();
    LinuxTest::TearDown();
  }

  // Returns after the platform has read the text.
  void Write(const std::string& text) const {
    EXPECT_EQ(write(m_pipe, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    EXPECT_TRUE(WaitFor([this] {
      int unread = 0;
      return ioctl(m_pipe, FIONREAD, &unread) == 0 && unread == 0;
    }));
  }
  // Ends the attribute. Returns the name that the platform reports.
  std::string Finish() {
    if (m_reader.joinable()) {
      close(m_pipe);
      m_reader.join();
    }
    return m_name;
  }
  pthread_t ReaderHandle() { return m_reader.native_handle(); }
  pid_t ReaderId() const { return m_readerId; }
  int Pipe() const { return m_pipe; }
  const std::filesystem::path& File() const { return m_file; }

 private:
  std::filesystem::path m_file;
  int m_pipe = -1;
  std::thread m_reader;
  std::atomic<pid_t> m_readerId = 0;
  std::string m_name;
};

TEST_F(SlowAttributeTest, IsReadInPieces) {
  Write("Integrated ");
  Write("Cam");
  Write("era\nsecond line\n");
  EXPECT_EQ(Finish(), "Integrated Camera");
}

TEST_F(SlowAttributeTest, IsCutAfterAPage) {
  Write(std::string(100, 'x'));
  const std::string rest(2 * kMaxAttributeSize, 'x');
  EXPECT_EQ(write(Pipe(), rest.data(), rest.size()), static_cast<ssize_t>(rest.size()));
  EXPECT_EQ(Finish(), std::string(kMaxAttributeSize, 'x'));
}

TEST_F(SlowAttributeTest, IsReadOnAfterASignal) {
  static std::atomic<bool> hasHandled;
  hasHandled = false;
  struct sigaction handler = {};
  handler.sa_handler = [](int /*signal*/) { hasHandled = true; };  // without SA_RESTART
  struct sigaction earlier = {};
  sigaction(SIGUSR1, &handler, &earlier);
  EXPECT_TRUE(WaitFor([this] { return SystemCallOf(ReaderId()) == SYS_read; }));
  pthread_kill(ReaderHandle(), SIGUSR1);
  EXPECT_TRUE(WaitFor([] { return hasHandled.load(); }));
  Write("Camera\n");
  EXPECT_EQ(Finish(), "Camera");
  sigaction(SIGUSR1, &earlier, nullptr);
}

TEST_F(SlowAttributeTest, DescriptorIsClosedOnExec) {
  // The pipe can be written before the reader has its descriptor.
  EXPECT_TRUE(WaitFor([this] { return SystemCallOf(ReaderId()) == SYS_read; }));
  int found = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    const int descriptor = std::stoi(entry.path().filename());
    if (descriptor != Pipe() && std::filesystem::read_symlink(entry.path(), error) == File()) {
      ++found;
      EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
    }
  }
  EXPECT_EQ(found, 1);
}

// --- Out of memory ---

// Lists the USB devices while the kernel has no memory for a system call, except for opening folders. Returns
// whether std::bad_alloc is thrown.
bool ListingThrowsWithoutMemoryFor(std::uint32_t systemCall) {
  bool hasThrown = false;
  EXPECT_TRUE(WithFailingSystemCall(systemCall, ENOMEM, [&] {
    try {
      static_cast<void>(devices::CurrentDeviceProvider()->DescribeUsbDevices());
    } catch (const std::bad_alloc&) {
      hasThrown = true;
    }
  }));
  return hasThrown;
}

using SysfsMemoryTest = LinuxTest;

// An attribute that counted as empty could make a built-in camera removable.
TEST_F(SysfsMemoryTest, AttributeThatCannotBeReadIsNotEmpty) {
  AddLaptopCamera();
  EXPECT_TRUE(ListingThrowsWithoutMemoryFor(SYS_openat));
  EXPECT_TRUE(ListingThrowsWithoutMemoryFor(SYS_read));
  EXPECT_FALSE(ListingThrowsWithoutMemoryFor(SYS_write));
}

TEST_F(SysfsMemoryTest, DeviceWhoseLinkCannotBeReadIsNotOmitted) {
  AddLaptopCamera();
  EXPECT_TRUE(ListingThrowsWithoutMemoryFor(SYS_readlinkat));
}

// --- Descriptors ---

// Closes standard input, so that 0 is the next descriptor.
class ClosedStandardInput {
 public:
  ClosedStandardInput() : m_saved(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)) { close(STDIN_FILENO); }
  ClosedStandardInput(const ClosedStandardInput&) = delete;
  ClosedStandardInput& operator=(const ClosedStandardInput&) = delete;
  ~ClosedStandardInput() {
    if (m_saved >= 0) {
      dup2(m_saved, STDIN_FILENO);
      close(m_saved);
    }
  }

 private:
  int m_saved;
};

using DescriptorZeroTest = LinuxTest;

TEST_F(DescriptorZeroTest, IsUsedAndClosedLikeAnyOther) {
  AddLaptopCamera();
  for (const int error : {0, EINTR, ENOMEM}) {
    if (error != 0) {
      kernel.Fail(kOpenCall, error, error == EINTR ? Persistence::kTransient : Persistence::kPersistent);
    }
    const ClosedStandardInput closed;
    const std::vector<devices::VideoNodeDetails> nodes =
        devices::CurrentDeviceProvider()->DescribeVideoNodes();
    ASSERT_THAT(nodes, ::testing::SizeIs(2));
    EXPECT_EQ(nodes.front().openError, error == EINTR ? 0 : error);
    EXPECT_EQ(nodes.front().rejectionReason, "");
    EXPECT_EQ(nodes.front().name, "Integrated Camera");
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "left open";
  }
}

TEST_F(DescriptorZeroTest, CanBeTheInterruptOfACamera) {
  AddLaptopCamera();
  const ClosedStandardInput closed;
  EXPECT_TRUE(FirstCamera());
  EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "left open";
}

}  // namespace
}  // namespace linux_support
