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

namespace guest {
namespace {

namespace fs = std::filesystem;

std::string FirstLine(const fs::path& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

constexpr std::chrono::seconds kReplyTimeout{60};

// The serial line to the host.
class ControlLine {
 public:
  ControlLine()
      : m_descriptor(
            open(Environment("NUVEQ_KERNEL_CONTROL").c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
    if (m_descriptor.Get() < 0) {
      throw std::system_error(errno, std::generic_category(), "cannot open the serial line to the host");
    }
  }

  // Sends a request and returns the host's reply, or an error message.
  std::string Send(const std::string& request) {
    const std::string line = request + "\n";
    if (write(m_descriptor.Get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
      return "cannot send a request to the host";
    }
    std::string reply;
    const auto deadline = std::chrono::steady_clock::now() + kReplyTimeout;
    while (std::chrono::steady_clock::now() < deadline) {
      pollfd entry{m_descriptor.Get(), POLLIN, 0};
      char character = 0;
      if (poll(&entry, 1, 1000) <= 0 || read(m_descriptor.Get(), &character, 1) != 1) {
        continue;
      }
      if (character == '\n') {
        return reply;
      }
      reply += character;
    }
    return "timeout waiting for the host; received '" + reply + "'";
  }

 private:
  FileDescriptor m_descriptor;
};

}  // namespace

CameraState FindCamera(const std::string& camera) {
  std::error_code error;
  for (fs::directory_iterator entry("/sys/class/video4linux", error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code gone;
    const fs::path usbDevice = fs::canonical(entry->path() / "device", gone).parent_path();
    const fs::path node = "/dev" / entry->path().filename();
    // Index 0 is the capture node; uvcvideo also creates a metadata node.
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

std::string PlugIn(const std::string& camera) { return ControlLine().Send("plug " + camera); }

std::string Unplug(const std::string& camera) { return ControlLine().Send("unplug " + camera); }

}  // namespace guest
