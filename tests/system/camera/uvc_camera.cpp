// uvc_camera: a USB video camera for a virtual machine. Its help says how to use it and what it logs.
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

namespace {

constexpr std::chrono::seconds kPatience{15};

[[noreturn]] void Fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

// Readable once the program is to end.
FileDescriptor StopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  FileDescriptor stop(signalfd(-1, &signals, SFD_CLOEXEC));
  if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0 || stop.Get() < 0) {
    Fail("signalfd");
  }
  return stop;
}

sockaddr_un AddressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    throw uvc::UsageError("the path of the socket is too long: " + path);
  }
  std::ranges::copy(path, address.sun_path);
  return address;
}

// Waits for somebody to listen there; nobody's descriptor when the program is to end meanwhile.
FileDescriptor Connect(const sockaddr_un& address, int stop) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  for (;;) {
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (socket.Get() < 0) {
      Fail("socket");
    }
    if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
      // A whole frame goes in at once.
      const int room = 1 << 21;
      setsockopt(socket.Get(), SOL_SOCKET, SO_SNDBUF, &room, sizeof(room));
      return socket;
    }
    const bool isTransient = errno == ENOENT || errno == ECONNREFUSED || errno == EAGAIN;
    if (!isTransient || std::chrono::steady_clock::now() >= end) {
      Fail("cannot connect to the socket");
    }
    pollfd waiting{stop, POLLIN, 0};
    if (poll(&waiting, 1, 50) > 0) {
      return FileDescriptor();
    }
  }
}

int Run(const uvc::Options& options) {
  const sockaddr_un address = AddressOf(options.socket);
  const FileDescriptor stop = StopSignals();
  uvc::EventLog log(options.log);
  FileDescriptor socket = Connect(address, stop.Get());
  if (socket.Get() >= 0) {
    uvc::Camera(std::move(socket), options.model, log).Run(stop.Get());
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::vector<std::string_view> arguments(argv + 1, argv + argc);
    const uvc::Options options = uvc::ParseOptions(arguments);
    if (options.wantsHelp) {
      std::cout << uvc::HelpText() << std::flush;
      return 0;
    }
    return Run(options);
  } catch (const uvc::UsageError& error) {
    std::cerr << "uvc_camera: " << error.what() << "; see 'uvc_camera --help'" << std::endl;
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "uvc_camera: " << error.what() << std::endl;
    return 1;
  }
}
