// uvc_camera: a USB video camera for a virtual machine. The help text describes its options and its log.
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <iostream>
#include <system_error>
#include <vector>

#include "CameraOptions.h"
#include "UvcCamera.h"

namespace uvc {
namespace {

constexpr std::chrono::seconds kConnectTimeout{15};

[[noreturn]] void ThrowErrno(const char* message) {
  throw std::system_error(errno, std::generic_category(), message);
}

// A descriptor that becomes readable on SIGTERM and SIGINT.
FileDescriptor StopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  FileDescriptor stop(signalfd(-1, &signals, SFD_CLOEXEC));
  if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0 || stop.Get() < 0) {
    ThrowErrno("signalfd");
  }
  return stop;
}

sockaddr_un AddressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    throw UsageError("the path of the socket is too long: " + path);
  }
  std::ranges::copy(path, address.sun_path);
  return address;
}

// Waits for a listener and connects to it. Returns an invalid descriptor if stop becomes readable first.
FileDescriptor Connect(const sockaddr_un& address, int stop) {
  const auto end = std::chrono::steady_clock::now() + kConnectTimeout;
  for (;;) {
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (socket.Get() < 0) {
      ThrowErrno("socket");
    }
    if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
      // A buffer for a whole frame.
      const int bufferSize = 1 << 21;
      setsockopt(socket.Get(), SOL_SOCKET, SO_SNDBUF, &bufferSize, sizeof(bufferSize));
      return socket;
    }
    const bool isTransient = errno == ENOENT || errno == ECONNREFUSED || errno == EAGAIN;
    if (!isTransient || std::chrono::steady_clock::now() >= end) {
      ThrowErrno("cannot connect to the socket");
    }
    pollfd waiting{stop, POLLIN, 0};
    if (poll(&waiting, 1, 50) > 0) {
      return FileDescriptor();
    }
  }
}

int Run(const Options& options) {
  const sockaddr_un address = AddressOf(options.socket);
  const FileDescriptor stop = StopSignals();
  EventLog log(options.log);
  FileDescriptor socket = Connect(address, stop.Get());
  if (socket.Get() >= 0) {
    Camera(std::move(socket), options.model, log).Run(stop.Get());
  }
  return 0;
}

}  // namespace
}  // namespace uvc

int main(int argc, char** argv) {
  try {
    const std::vector<std::string_view> arguments(argv + 1, argv + argc);
    const uvc::Options options = uvc::ParseOptions(arguments);
    if (options.help) {
      std::cout << *options.help << std::flush;
      return 0;
    }
    return uvc::Run(options);
  } catch (const uvc::UsageError& error) {
    std::cerr << "uvc_camera: " << error.what() << "; see 'uvc_camera --help'" << std::endl;
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "uvc_camera: " << error.what() << std::endl;
    return 1;
  }
}
