// Closing while a frame is being copied into the pool.
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "support/CameraHandlerTest.h"
#include "support/SystemCallOf_linux.h"

namespace {

using support::CameraHandlerTest;
using support::kFrameSize;
using support::SystemCallOf;
using support::WaitFor;

// A frame that cannot be read at first: a thread that copies it stops in the copy until Resume.
class StoppedFrame {
 public:
  StoppedFrame() {
    s_frame = this;
    m_bytes = mmap(nullptr, kFrameSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    struct sigaction stop = {};
    stop.sa_handler = [](int) { s_frame->StopAccess(); };
    sigaction(SIGSEGV, &stop, &m_previous);
  }
  StoppedFrame(const StoppedFrame&) = delete;
  StoppedFrame& operator=(const StoppedFrame&) = delete;
  ~StoppedFrame() {
    sigaction(SIGSEGV, &m_previous, nullptr);
    munmap(m_bytes, kFrameSize);
  }

  std::uint8_t* Bytes() { return static_cast<std::uint8_t*>(m_bytes); }
  bool IsStopped() const { return m_isStopped; }
  bool IsResumed() const { return m_isResumed; }
  void Resume() {
    m_isResumed = true;
    sem_post(&m_resume.semaphore);
  }

 private:
  struct Semaphore {
    Semaphore() { sem_init(&semaphore, 0, 0); }
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;
    ~Semaphore() { sem_destroy(&semaphore); }
    sem_t semaphore{};
  };

  // On the copying thread, inside memcpy.
  void StopAccess() {
    m_isStopped = true;
    while (sem_wait(&m_resume.semaphore) != 0) {
    }
    mprotect(m_bytes, kFrameSize, PROT_READ | PROT_WRITE);
  }

  static inline StoppedFrame* s_frame = nullptr;
  void* m_bytes = nullptr;
  struct sigaction m_previous = {};
  Semaphore m_resume;
  std::atomic<bool> m_isStopped = false;
  std::atomic<bool> m_isResumed = false;
};

TEST_F(CameraHandlerTest, CloseWaitsForAFrameThatIsBeingCopied) {
  QueryAndOpen();
  StoppedFrame frame;
  std::thread camera([&, callback = platform.GrabberCallback()] {
    EXPECT_EQ(callback->BufferCB(0.0, frame.Bytes(), static_cast<LONG>(kFrameSize)), S_OK);
  });
  EXPECT_TRUE(WaitFor([&] { return frame.IsStopped(); }));
  std::atomic<bool> isFreed = false;
  platform.Before("VideoFrame::ReleaseBuffer", [&] {
    EXPECT_TRUE(isFreed || frame.IsResumed()) << "freed during the copy";
    isFreed = true;
  });
  // Resumes the copy when the close waits for it, or has not waited.
  std::thread observer([&, closer = static_cast<pid_t>(syscall(SYS_gettid))] {
    EXPECT_TRUE(WaitFor([&] { return SystemCallOf(closer) == SYS_clock_nanosleep || isFreed; }));
    frame.Resume();
  });
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_TRUE(isFreed);
  observer.join();
  camera.join();
}

}  // namespace
