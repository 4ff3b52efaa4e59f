#include <boost/version.hpp>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>

#include "cli/OpenBrowser.h"
#include "cli/StopSignals.h"
#include "cli/Version.h"
#include "commands/Commands.h"
#include "view/AccessControl.h"
#include "view/CameraSession.h"
#include "view/HttpServer.h"
#include "view/LiveStream.h"
#include "view/ViewApi.h"
#include "view/ViewRecording.h"
#include "view/ViewService.h"

namespace nuveqcam {
namespace {

// The interval in which signals, changes of the camera and viewers that come or go are noticed. A wake-up
// costs as much as sending two packets, so it is longer than kPollInterval.
constexpr std::chrono::milliseconds kTickInterval{50};

void PrintAddress(const CommandContext& context, const std::string& address) {
  context.console.out << (context.options.wantsJson
                              ? AddressJson(address)
                              : "view the camera at " + address + "\npress Ctrl-C to end\n");
  if (!context.console.out.flush()) {
    throw Failure(ExitCode::kCannotWrite, "cannot write the address to standard output");
  }
}

// A recording must not be lost when the program ends.
void SaveRecording(const CommandContext& context, ViewService& service) {
  if (const std::string message = service.SaveRecording({}); !message.empty()) {
    context.console.err << "nuveqcam: " + message << std::endl;
  }
}

}  // namespace

void RunView(const CommandContext& context) {
  const StopSignals signals;
  std::atomic<bool> hasCameraChanged = false;
  LiveStream stream;
  HttpServer server(static_cast<std::uint16_t>(context.options.port), SecurityFields());
  const AccessControl access(MakeToken(), server.Port(), MakeToken());
  CameraSession camera(context, stream, [&] { hasCameraChanged = true; });
  ViewService service(
      access, {.stream = stream,
               .cameraState = [&] { return camera.State(); },
               .changeCamera = [&](const Size& size, std::uint32_t fps) { camera.Change(size, fps); },
               .setCameraWanted = [&](bool isWanted) { camera.SetWanted(isWanted); },
               .startRecording =
                   [&](std::uint32_t fps) { return std::make_unique<ViewRecording>(stream, fps, signals); },
               .post = [&](std::function<void()> task) { server.Post(std::move(task)); },
               .keepsCameraOpen = context.options.keepsCameraOpen});
  PrintAddress(context, access.Address());
  // Empty: no browser was started, or its failure was reported.
  std::function<bool()> hasBrowserFailed;
  if (context.options.opensBrowser) {
    hasBrowserFailed = OpenBrowser(access.EntryAddress());
  }
  const auto onTick = [&] {
    if (hasCameraChanged.exchange(false)) {
      service.OnCameraChange();
    }
    service.OnTick(Clock::now());
    if (hasBrowserFailed && hasBrowserFailed()) {
      context.console.err << "nuveqcam: cannot open a browser; open the address by hand" << std::endl;
      hasBrowserFailed = nullptr;
    }
    return !signals.HasArrived();
  };
  try {
    server.Run([&](const HttpRequest& request, const HttpReply& reply) { service.Handle(request, reply); },
               kTickInterval, onTick);
  } catch (...) {
    SaveRecording(context, service);
    throw;
  }
  SaveRecording(context, service);
}

std::string ViewLibraryVersions() {
  return "Boost " + std::to_string(BOOST_VERSION / 100000) + "." +
         std::to_string(BOOST_VERSION / 100 % 1000) + "." + std::to_string(BOOST_VERSION % 100) + "\n";
}

}  // namespace nuveqcam
