#include "GuestPc.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <cerrno>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "CameraFiles.h"
#include "support/FileDescriptor.h"
#include "support/HostCallbacks.h"

namespace {

namespace fs = std::filesystem;

std::string FirstLine(const fs::path& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

// The line to the host.
class ControlLine {
 public:
  ControlLine()
      : m_descriptor(
            open(Environment("NUVEQ_KERNEL_CONTROL").c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
    if (m_descriptor.Get() < 0) {
      throw std::system_error(errno, std::generic_category(), "the line to the host");
    }
  }

  std::string Ask(const std::string& request) {
    const std::string line = request + "\n";
    if (write(m_descriptor.Get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
      return "the host could not be asked";
    }
    std::string answer;
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (std::chrono::steady_clock::now() < deadline) {
      pollfd entry{m_descriptor.Get(), POLLIN, 0};
      char character = 0;
      if (poll(&entry, 1, 1000) <= 0 || read(m_descriptor.Get(), &character, 1) != 1) {
        continue;
      }
      if (character == '\n') {
        return answer;
      }
      answer += character;
    }
    return "the host does not answer; it said '" + answer + "'";
  }

 private:
  FileDescriptor m_descriptor;
};

}  // namespace

CameraPlace PlaceOf(const std::string& camera) {
  std::error_code error;
  for (fs::directory_iterator entry("/sys/class/video4linux", error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code gone;
    const fs::path usbDevice = fs::canonical(entry->path() / "device", gone).parent_path();
    const fs::path node = "/dev" / entry->path().filename();
    // Behind its first node a camera has one for its metadata.
    if (!gone && FirstLine(usbDevice / "serial") == camera && FirstLine(entry->path() / "index") == "0" &&
        access(node.c_str(), R_OK | W_OK) == 0) {
      return {node, FirstLine(usbDevice / "removable")};
    }
  }
  return {};
}

bool IsOnTheBus(const std::string& camera) {
  std::error_code error;
  for (fs::directory_iterator entry("/sys/bus/usb/devices", error), end; !error && entry != end;
       entry.increment(error)) {
    if (FirstLine(entry->path() / "serial") == camera) {
      return true;
    }
  }
  return false;
}

std::string PlugIn(const std::string& camera) { return ControlLine().Ask("plug " + camera); }

std::string PullOut(const std::string& camera) { return ControlLine().Ask("unplug " + camera); }
