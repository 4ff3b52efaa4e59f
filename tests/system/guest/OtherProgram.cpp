#include "OtherProgram.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>

#include <array>
#include <system_error>
#include <utility>

namespace guest {
namespace {

struct Pipe {
  FileDescriptor readEnd;
  FileDescriptor writeEnd;
};

Pipe MakePipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe2");
  }
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

// Opens the camera and requests its buffers. Returns 0 or errno.
int AcquireCamera(const char* node, FileDescriptor& camera) {
  camera = FileDescriptor(open(node, O_RDWR | O_CLOEXEC));
  v4l2_requestbuffers request{};
  request.count = 4;
  request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  request.memory = V4L2_MEMORY_MMAP;
  return camera.Get() < 0 || ioctl(camera.Get(), VIDIOC_REQBUFS, &request) != 0 ? errno : 0;
}

// Runs in the child process. Uses only system calls, because it was forked without exec.
[[noreturn]] void HoldCamera(const char* node, Pipe& lifeline, const Pipe& report) {
  lifeline.writeEnd.Close();
  FileDescriptor camera;
  const int error = AcquireCamera(node, camera);
  static_cast<void>(write(report.writeEnd.Get(), &error, sizeof(error)) == sizeof(error));
  char unused = 0;
  static_cast<void>(read(lifeline.readEnd.Get(), &unused, 1) == 0);
  _exit(0);
}

}  // namespace

OtherProgram::OtherProgram(const std::string& node) {
  Pipe lifeline = MakePipe();
  Pipe report = MakePipe();
  m_process = fork();
  if (m_process == 0) {
    HoldCamera(node.c_str(), lifeline, report);
  }
  m_lifeline = std::move(lifeline.writeEnd);
  report.writeEnd.Close();
  int error = 0;
  if (m_process < 0 || read(report.readEnd.Get(), &error, sizeof(error)) != sizeof(error)) {
    m_error = "cannot start the other process";
  } else if (error != 0) {
    m_error = std::generic_category().message(error);
  }
}

void OtherProgram::End() {
  m_lifeline.Close();
  if (const int process = std::exchange(m_process, -1); process > 0) {
    waitpid(process, nullptr, 0);
  }
}

}  // namespace guest
