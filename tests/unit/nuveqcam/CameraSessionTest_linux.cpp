// The viewers' camera, over simulated PCs.
#include "view/CameraSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <sstream>

#include "devices/DeviceProvider.h"
#include "simulated/SimulatedPc.h"
#include "support/WaitFor.h"

namespace nuveqcam {
namespace {

using std::chrono::milliseconds;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr Size kSmall{320, 240};
constexpr Size kLarge{640, 480};
// The encoder rejects it.
constexpr Size kUnsupported{65535, 16};

class ViewedCamera : public ::testing::Test {
 protected:
  ViewedCamera() {
    options.size = kSmall;
    options.fps = 30;
    timeouts.afterDisconnect = milliseconds(1);
    times.closeDelay = milliseconds(0);
    times.retryInterval = milliseconds(1);
  }
  void TearDown() override {
    session.reset();
    devices::SetDeviceProvider(nullptr);
  }

  // The camera is not wanted yet.
  void Start(const simulated::SimulatedPcSettings& settings = {}) {
    pc = std::make_shared<simulated::SimulatedPc>(settings);
    devices::SetDeviceProvider(pc);
    library.emplace("");
    camera.emplace(*library, log);
    context.emplace(CommandContext{options, console, *camera, timeouts});
    session.emplace(
        *context, stream, [this] { ++changes; }, times);
  }
  // Waits until the state fulfills the condition and returns it.
  template <typename Condition>
  CameraState WaitForState(const Condition& condition) {
    CameraState state;
    EXPECT_TRUE(WaitFor([&] {
      state = session->State();
      return condition(state);
    })) << "phase "
        << static_cast<int>(state.phase) << ", error: " << state.error;
    return state;
  }
  CameraState WaitForPhase(CameraPhase phase) {
    return WaitForState([phase](const CameraState& state) { return state.phase == phase; });
  }
  // Waits until packets arrive at the given size without an error.
  void WaitForPicture(const Size& size) {
    WaitForState([&](const CameraState& state) {
      return state.phase == CameraPhase::kOpen && state.error.empty() && state.request->size == size;
    });
    EXPECT_TRUE(WaitFor([this] { return !stream.Group().empty(); }));
  }

  Options options;
  Timeouts timeouts;
  CameraSessionTimes times;
  std::ostringstream output;
  Console console{output, output};
  LibraryLog log{nullptr};
  std::shared_ptr<simulated::SimulatedPc> pc;
  std::optional<CameraLibrary> library;
  std::optional<Camera> camera;
  LiveStream stream;
  std::atomic<int> changes = 0;
  std::optional<CommandContext> context;
  std::optional<CameraSession> session;
};

TEST_F(ViewedCamera, RunsWhileItIsWanted) {
  Start();
  EXPECT_EQ(session->State().phase, CameraPhase::kClosed);
  session->SetWanted(true);
  WaitForPicture(kSmall);
  const CameraState state = session->State();
  EXPECT_EQ(state.cameraName, "Integrated Camera");
  EXPECT_EQ(state.conclusion, "Selected: the first camera of USB device 1-5, which is built in");
  EXPECT_THAT(state.advice, IsEmpty());
  EXPECT_THAT(state.capabilities.sizes, Not(IsEmpty()));
  const int changesWhileOpen = changes;
  EXPECT_GT(changesWhileOpen, 0);
  session->SetWanted(false);
  WaitForPhase(CameraPhase::kClosed);
  EXPECT_THAT(stream.Group(), IsEmpty());
  EXPECT_TRUE(WaitFor([&] { return changes > changesWhileOpen; }));
}

TEST_F(ViewedCamera, StaysOpenIfItIsWantedAgainWithinTheDelay) {
  times.closeDelay = std::chrono::hours(1);
  Start();
  session->SetWanted(true);
  WaitForPicture(kSmall);
  const LivePacketPtr first = stream.Group().front();
  const std::size_t packets = stream.Group().size();
  session->SetWanted(false);
  EXPECT_TRUE(WaitFor([&] { return stream.Group().size() > packets + 1; }));
  session->SetWanted(true);
  EXPECT_TRUE(WaitFor([&] { return stream.Group().size() > packets + 2; }));
  EXPECT_EQ(stream.Group().front(), first);
}

TEST_F(ViewedCamera, ChangesItsSize) {
  Start();
  session->SetWanted(true);
  WaitForPicture(kSmall);
  session->Change(kLarge, 15);
  WaitForPicture(kLarge);
  EXPECT_EQ(session->State().request->fps, 15);
  EXPECT_EQ(stream.Group().front()->session, 1);
}

TEST_F(ViewedCamera, ChangeBeforeTheCameraIsWantedApplies) {
  Start();
  session->Change(kLarge, 30);
  WaitForState([](const CameraState& state) { return state.request && state.request->size == kLarge; });
  EXPECT_EQ(session->State().phase, CameraPhase::kClosed);
  session->SetWanted(true);
  WaitForPicture(kLarge);
}

TEST_F(ViewedCamera, GoesBackToTheEarlierRequestIfAChangeFails) {
  Start();
  session->SetWanted(true);
  WaitForPicture(kSmall);
  session->Change(kUnsupported, 30);
  const CameraState failed = WaitForState(
      [](const CameraState& state) { return state.phase == CameraPhase::kOpen && !state.error.empty(); });
  EXPECT_THAT(failed.error, StartsWith("cannot open the camera at 65535x16, 30 fps"));
  EXPECT_EQ(failed.request->size, kSmall);
  session->Change(kLarge, 30);
  WaitForPicture(kLarge);
}

TEST_F(ViewedCamera, IsReopenedAfterADisconnect) {
  Start();
  session->SetWanted(true);
  WaitForPicture(kSmall);
  pc->RemoveBuiltInCamera();
  const CameraState lost = WaitForState([](const CameraState& state) { return state.cameraName.empty(); });
  EXPECT_THAT(lost.conclusion, StartsWith("No camera is offered: "));
  EXPECT_THAT(lost.advice, Not(IsEmpty()));
  const CameraState failed = WaitForPhase(CameraPhase::kFailed);
  EXPECT_THAT(failed.error, StartsWith("the camera was disconnected; "));
  EXPECT_THAT(stream.Group(), IsEmpty());
  pc->ReturnBuiltInCamera();
  WaitForPicture(kSmall);
  EXPECT_EQ(session->State().cameraName, "Integrated Camera");
}

TEST_F(ViewedCamera, ChangeWhileItIsMissingApplies) {
  Start();
  pc->RemoveBuiltInCamera();
  session->SetWanted(true);
  WaitForPhase(CameraPhase::kFailed);
  session->Change(kLarge, 30);
  WaitForState([](const CameraState& state) { return state.request && state.request->size == kLarge; });
  pc->ReturnBuiltInCamera();
  WaitForPicture(kLarge);
}

TEST_F(ViewedCamera, ChangeIsTriedAgainAfterADisconnect) {
  Start();
  session->SetWanted(true);
  WaitForPicture(kSmall);
  pc->Freeze(true);
  session->Change(kLarge, 30);
  WaitForState([](const CameraState& state) { return state.request->size == kLarge; });
  pc->RemoveBuiltInCamera();
  WaitForPhase(CameraPhase::kFailed);
  pc->Freeze(false);
  pc->ReturnBuiltInCamera();
  WaitForPicture(kLarge);
}

TEST_F(ViewedCamera, ChangeThatIsRejectedIsNotTriedAgainAfterADisconnect) {
  Start();
  session->SetWanted(true);
  WaitForPicture(kSmall);
  pc->RemoveBuiltInCamera();
  WaitForPhase(CameraPhase::kFailed);
  session->Change(kUnsupported, 30);
  pc->ReturnBuiltInCamera();
  const CameraState state = WaitForState([](const CameraState& current) {
    return current.phase == CameraPhase::kOpen && !current.error.empty();
  });
  EXPECT_THAT(state.error, StartsWith("cannot open the camera at 65535x16, 30 fps"));
  EXPECT_EQ(state.request->size, kSmall);
}

TEST_F(ViewedCamera, IsReopenedAfterItsPacketsStopped) {
  timeouts.packet = milliseconds(200);
  Start();
  session->SetWanted(true);
  WaitForPicture(kSmall);
  pc->Freeze(true);
  const CameraState failed = WaitForPhase(CameraPhase::kFailed);
  EXPECT_THAT(failed.error, StartsWith("no packets from the camera for "));
  pc->Freeze(false);
  WaitForPicture(kSmall);
}

TEST_F(ViewedCamera, ExplainsThatThereIsNone) {
  simulated::SimulatedPcSettings settings;
  settings.hasBuiltInCamera = false;
  Start(settings);
  session->SetWanted(true);
  const CameraState state = WaitForPhase(CameraPhase::kFailed);
  EXPECT_THAT(state.error, StartsWith("no built-in camera was found; "));
  EXPECT_THAT(state.conclusion, HasSubstr("the only capture device is not a built-in USB camera"));
  EXPECT_THAT(state.advice, Not(IsEmpty()));
  session->SetWanted(false);
  EXPECT_EQ(WaitForPhase(CameraPhase::kClosed).error, "");
}

}  // namespace
}  // namespace nuveqcam
