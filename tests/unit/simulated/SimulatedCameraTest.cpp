// The cameras of the simulated PC as capture sources.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <future>

#include "support/simulated/SimulatedCameraHelpers.h"

namespace simulated_support {
namespace {

using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::Optional;

const graph::VideoFormat kSmall = MakeFormat(graph::kYuyv, 320, 240);

// Calls Next and recycles the frame.
graph::CaptureResult NextResult(graph::CaptureSource& source,
                                graph::CaptureSource::Deadline deadline = FarDeadline()) {
  graph::CapturedFrame frame;
  const graph::CaptureResult result = source.Next(deadline, frame);
  if (result == graph::CaptureResult::kFrame) {
    source.Recycle(frame);
  }
  return result;
}

std::optional<std::uint32_t> TakeNumber(graph::CaptureSource& source,
                                        const graph::VideoFormat& format = kSmall) {
  const Yuv picture = PictureOf(Take(source), format);
  return picture.y.empty() ? std::nullopt : NumberIn(picture);
}

TEST(SimulatedCameraTest, OffersTheFormatsOfALaptopCamera) {
  simulated::SimulatedPc pc;
  std::vector<graph::VideoFormat> formats;
  ASSERT_EQ(BuiltInCamera(pc)->ListFormats(formats), S_OK);
  EXPECT_THAT(formats, ElementsAre(graph::VideoFormat{graph::kYuyv, 640, 480, 333'333},
                                   graph::VideoFormat{graph::kYuyv, 640, 480, 666'666},
                                   graph::VideoFormat{graph::kYuyv, 320, 240, 333'333},
                                   graph::VideoFormat{graph::kYuyv, 320, 240, 666'666},
                                   graph::VideoFormat{graph::kYuyv, 1280, 720, 1'000'000},
                                   graph::VideoFormat{graph::kMjpg, 640, 480, 333'333},
                                   graph::VideoFormat{graph::kMjpg, 1280, 720, 333'333},
                                   graph::VideoFormat{graph::kMjpg, 1920, 1080, 333'333}));
  ASSERT_EQ(PlugInCamera(pc)->ListFormats(formats), S_OK);
  EXPECT_THAT(formats, ElementsAre(graph::VideoFormat{graph::kMjpg, 1920, 1080, 166'666},
                                   graph::VideoFormat{graph::kMjpg, 1920, 1080, 333'333}));
}

TEST(SimulatedCameraTest, OffersTheFormatsOfTheSettings) {
  simulated::SimulatedPcSettings settings = Unpaced();
  settings.formats = {MakeFormat(graph::kMjpg, 160, 120, 60)};
  simulated::SimulatedPc pc(settings);
  const auto camera = BuiltInCamera(pc);
  std::vector<graph::VideoFormat> formats{kSmall};
  ASSERT_EQ(camera->ListFormats(formats), S_OK);
  EXPECT_EQ(formats, settings.formats);
  ASSERT_EQ(StartWith(*camera, settings.formats[0]), S_OK);
  EXPECT_THAT(TakeNumber(*camera, settings.formats[0]), Optional(0U));
}

TEST(SimulatedCameraTest, SetsTheNearestInterval) {
  simulated::SimulatedPc pc;
  const auto camera = BuiltInCamera(pc);
  for (const auto& [wanted, set] :
       {std::pair{333'333, 333'333}, std::pair{400'000, 333'333}, std::pair{600'000, 666'666},
        std::pair{666'667, 666'666}, std::pair{0, 333'333}, std::pair{10'000'000, 666'666}}) {
    graph::VideoFormat format{graph::kYuyv, 640, 480, wanted};
    ASSERT_EQ(camera->SetFormat(format), S_OK);
    EXPECT_EQ(format, (graph::VideoFormat{graph::kYuyv, 640, 480, set}));
  }
}

TEST(SimulatedCameraTest, RejectsFormatsThatItDoesNotOffer) {
  simulated::SimulatedPc pc;
  const auto camera = BuiltInCamera(pc);
  for (const graph::VideoFormat& unknown :
       {MakeFormat(graph::kYuyv, 1920, 1080), MakeFormat(graph::kMjpg, 320, 240),
        MakeFormat(graph::kYuyv, 640, 240), MakeFormat(graph::FourCc("NV12"), 640, 480),
        graph::VideoFormat{}}) {
    graph::VideoFormat format = unknown;
    EXPECT_EQ(camera->SetFormat(format), VFW_E_INVALIDMEDIATYPE);
    EXPECT_EQ(format, unknown);
  }
}

std::vector<graph::VideoFormat> EveryFormat() {
  std::vector<graph::VideoFormat> formats = simulated::LaptopCameraFormats();
  formats.push_back(MakeFormat(graph::kMjpg, 1920, 1080, 60));
  return formats;
}

class SimulatedCameraFormatTest : public ::testing::TestWithParam<graph::VideoFormat> {};

TEST_P(SimulatedCameraFormatTest, DeliversPicturesInOrderFromTheFirst) {
  const graph::VideoFormat& format = GetParam();
  const bool isPlugIn = format.interval < 300'000;
  simulated::SimulatedPc pc(Unpaced());
  const auto camera = isPlugIn ? PlugInCamera(pc) : BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, format), S_OK);
  for (std::uint32_t number = 0; number < 12; ++number) {
    graph::CapturedFrame frame;
    ASSERT_EQ(camera->Next(FarDeadline(), frame), graph::CaptureResult::kFrame);
    EXPECT_NEAR(frame.time, number * static_cast<double>(format.interval) / 1e7, 1e-6);
    const Yuv picture = PictureOf(Bytes(frame.data, frame.data + frame.size), format);
    camera->Recycle(frame);
    ASSERT_FALSE(picture.y.empty());
    EXPECT_THAT(NumberIn(picture), Optional(number));
    EXPECT_LT(ColourError(picture), 6);
  }
}

INSTANTIATE_TEST_SUITE_P(All, SimulatedCameraFormatTest, ::testing::ValuesIn(EveryFormat()),
                         [](const auto& tested) { return NameOf(tested.param); });

TEST(SimulatedCameraTest, EveryStartCountsFromZero) {
  simulated::SimulatedPc pc(Unpaced());
  const auto camera = BuiltInCamera(pc);
  for (const graph::VideoFormat& format :
       {kSmall, MakeFormat(graph::kMjpg, 640, 480), MakeFormat(graph::kYuyv, 640, 480), kSmall}) {
    ASSERT_EQ(StartWith(*camera, format), S_OK);
    EXPECT_THAT(TakeNumber(*camera, format), Optional(0U));
    EXPECT_THAT(TakeNumber(*camera, format), Optional(1U));
    camera->Stop();
  }
}

TEST(SimulatedCameraTest, IsNeverFasterThanItsRate) {
  simulated::SimulatedPc pc;
  const auto camera = BuiltInCamera(pc);
  const auto start = steady_clock::now();
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  for (std::uint32_t number = 0; number < 8; ++number) {
    EXPECT_THAT(TakeNumber(*camera), Optional(number));
    EXPECT_GE(steady_clock::now() - start, number * std::chrono::nanoseconds(33'333'300));
  }
}

TEST(SimulatedCameraTest, DeliversLateFramesWithoutWaiting) {
  simulated::SimulatedPc pc;
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  std::this_thread::sleep_for(std::chrono::milliseconds(110));
  // Frames 0 to 3 are due and are delivered without waiting.
  for (std::uint32_t number = 0; number < 4; ++number) {
    graph::CapturedFrame frame;
    ASSERT_EQ(camera->Next(steady_clock::now(), frame), graph::CaptureResult::kFrame);
    EXPECT_THAT(NumberIn(PictureOf(Bytes(frame.data, frame.data + frame.size), kSmall)), Optional(number));
    camera->Recycle(frame);
  }
}

TEST(SimulatedCameraTest, TimesOutBeforeTheNextFrameIsDue) {
  simulated::SimulatedPcSettings settings;
  settings.formats = {{graph::kYuyv, 64, 48, 600'000'000}};  // a frame a minute
  simulated::SimulatedPc pc(settings);
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, settings.formats[0]), S_OK);
  EXPECT_EQ(NextResult(*camera), graph::CaptureResult::kFrame);
  const auto deadline = steady_clock::now() + std::chrono::milliseconds(20);
  EXPECT_EQ(NextResult(*camera, deadline), graph::CaptureResult::kTimeout);
  EXPECT_GE(steady_clock::now(), deadline);
  EXPECT_EQ(NextResult(*camera, steady_clock::now()), graph::CaptureResult::kTimeout);
}

TEST(SimulatedCameraTest, OnlyOneSourceCanStream) {
  simulated::SimulatedPc pc(Unpaced());
  const auto first = BuiltInCamera(pc);
  const auto second = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*first, kSmall), S_OK);
  EXPECT_EQ(StartWith(*second, kSmall), com::kDeviceInUse);
  EXPECT_EQ(first->Start(), com::kDeviceInUse);
  EXPECT_THAT(TakeNumber(*first), Optional(0U));
  // Stopping a source that does not stream must not affect another one.
  second->Stop();
  EXPECT_THAT(TakeNumber(*first), Optional(1U));
  EXPECT_EQ(StartWith(*PlugInCamera(pc), MakeFormat(graph::kMjpg, 1920, 1080)), S_OK);
  first->Stop();
  ASSERT_EQ(second->Start(), S_OK);
  EXPECT_THAT(TakeNumber(*second), Optional(0U));
  EXPECT_EQ(first->Start(), com::kDeviceInUse);
}

TEST(SimulatedCameraTest, DestroyingASourceReleasesTheCamera) {
  simulated::SimulatedPc pc(Unpaced());
  const auto second = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*BuiltInCamera(pc), kSmall), S_OK);
  EXPECT_EQ(StartWith(*second, kSmall), S_OK);
}

TEST(SimulatedCameraTest, RequiresAFormatAndKeepsItWhileStreaming) {
  simulated::SimulatedPc pc(Unpaced());
  const auto camera = BuiltInCamera(pc);
  EXPECT_EQ(camera->Start(), E_UNEXPECTED);
  EXPECT_EQ(NextResult(*camera), graph::CaptureResult::kDisconnected);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  graph::VideoFormat another = MakeFormat(graph::kYuyv, 640, 480);
  EXPECT_EQ(camera->SetFormat(another), com::kDeviceInUse);
  EXPECT_THAT(TakeNumber(*camera), Optional(0U));
  camera->Stop();
  EXPECT_EQ(NextResult(*camera), graph::CaptureResult::kDisconnected);
}

TEST(SimulatedCameraTest, DeliversNoFrameUntilTheBufferIsRecycled) {
  simulated::SimulatedPc pc(Unpaced());
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  graph::CapturedFrame frame;
  ASSERT_EQ(camera->Next(FarDeadline(), frame), graph::CaptureResult::kFrame);
  const Bytes before(frame.data, frame.data + frame.size);
  EXPECT_EQ(NextResult(*camera, steady_clock::now()), graph::CaptureResult::kTimeout);
  // Frames other than the outstanding one are ignored.
  graph::CapturedFrame wrong = frame;
  wrong.buffer = 1;
  camera->Recycle(wrong);
  camera->Recycle(graph::CapturedFrame{});
  EXPECT_EQ(NextResult(*camera, steady_clock::now()), graph::CaptureResult::kTimeout);
  EXPECT_EQ(Bytes(frame.data, frame.data + frame.size), before);
  camera->Recycle(frame);
  camera->Recycle(frame);
  EXPECT_THAT(TakeNumber(*camera), Optional(1U));
}

TEST(SimulatedCameraTest, StaysInterruptedUntilTheNextStart) {
  simulated::SimulatedPc pc(Unpaced());
  pc.Freeze(true);
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  auto waiting = std::async(std::launch::async, [&] { return NextResult(*camera); });
  camera->Interrupt();
  EXPECT_EQ(waiting.get(), graph::CaptureResult::kInterrupted);
  pc.Freeze(false);
  EXPECT_EQ(NextResult(*camera), graph::CaptureResult::kInterrupted);
  EXPECT_EQ(NextResult(*camera, steady_clock::now()), graph::CaptureResult::kInterrupted);
  camera->Stop();
  ASSERT_EQ(camera->Start(), S_OK);
  EXPECT_THAT(TakeNumber(*camera), Optional(0U));
}

TEST(SimulatedCameraTest, InterruptAffectsOneSource) {
  simulated::SimulatedPc pc(Unpaced());
  const auto camera = BuiltInCamera(pc);
  const auto another = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  another->Interrupt();
  EXPECT_THAT(TakeNumber(*camera), Optional(0U));
}

TEST(SimulatedCameraTest, FrozenCameraTimesOutAndThenContinues) {
  simulated::SimulatedPc pc;
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  EXPECT_THAT(TakeNumber(*camera), Optional(0U));
  pc.Freeze(true);
  const auto deadline = steady_clock::now() + std::chrono::milliseconds(100);
  EXPECT_EQ(NextResult(*camera, deadline), graph::CaptureResult::kTimeout);
  EXPECT_GE(steady_clock::now(), deadline);
  const auto freezeEnd = steady_clock::now();
  pc.Freeze(false);
  // No frames are due for the time of the freeze.
  for (std::uint32_t number = 1; number < 4; ++number) {
    EXPECT_THAT(TakeNumber(*camera), Optional(number));
    EXPECT_GE(steady_clock::now() - freezeEnd, (number - 1) * std::chrono::nanoseconds(33'333'300));
  }
}

TEST(SimulatedCameraTest, UnfreezingWakesAWaitingSource) {
  simulated::SimulatedPc pc;
  pc.Freeze(true);
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  auto waiting = std::async(std::launch::async, [&] { return TakeNumber(*camera); });
  pc.Freeze(false);
  EXPECT_THAT(waiting.get(), Optional(0U));
}

TEST(SimulatedCameraTest, RemovalDisconnectsUntilTheCameraReturns) {
  simulated::SimulatedPc pc(Unpaced());
  pc.Freeze(true);
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  auto waiting = std::async(std::launch::async, [&] { return NextResult(*camera); });
  pc.RemoveBuiltInCamera();
  EXPECT_EQ(waiting.get(), graph::CaptureResult::kDisconnected);
  EXPECT_EQ(NextResult(*camera), graph::CaptureResult::kDisconnected);
  camera->Stop();
  std::vector<graph::VideoFormat> formats;
  graph::VideoFormat format = kSmall;
  EXPECT_EQ(camera->ListFormats(formats), com::kDeviceGone);
  EXPECT_EQ(camera->SetFormat(format), com::kDeviceGone);
  EXPECT_EQ(camera->Start(), com::kDeviceGone);

  pc.ReturnBuiltInCamera();
  pc.Freeze(false);
  EXPECT_EQ(camera->ListFormats(formats), S_OK);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  EXPECT_THAT(TakeNumber(*camera), Optional(0U));
}

TEST(SimulatedCameraTest, DisconnectedStreamStaysDisconnectedWhenTheCameraReturns) {
  simulated::SimulatedPc pc(Unpaced());
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  graph::CapturedFrame frame;
  ASSERT_EQ(camera->Next(FarDeadline(), frame), graph::CaptureResult::kFrame);
  pc.RemoveBuiltInCamera();
  pc.ReturnBuiltInCamera();
  // The outstanding frame stays readable.
  EXPECT_THAT(NumberIn(PictureOf(Bytes(frame.data, frame.data + frame.size), kSmall)), Optional(0U));
  camera->Recycle(frame);
  EXPECT_EQ(NextResult(*camera), graph::CaptureResult::kDisconnected);
  const auto another = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*another, kSmall), S_OK);
  camera->Stop();
  EXPECT_THAT(TakeNumber(*another), Optional(0U));
}

TEST(SimulatedCameraTest, OutlivesItsPc) {
  auto pc = std::make_unique<simulated::SimulatedPc>(Unpaced());
  const auto camera = BuiltInCamera(*pc);
  pc.reset();
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  EXPECT_THAT(TakeNumber(*camera), Optional(0U));
}

TEST(SimulatedCameraTest, ToleratesConcurrentRemovalFreezeAndInterrupt) {
  simulated::SimulatedPc pc(Unpaced());
  const auto camera = BuiltInCamera(pc);
  std::atomic<bool> isDone{false};
  auto others = std::async(std::launch::async, [&] {
    for (int i = 0; i < 300; ++i) {
      pc.Freeze(i % 2 == 0);
      pc.RemoveBuiltInCamera();
      pc.CaptureDevices();
      pc.ReturnBuiltInCamera();
      camera->Interrupt();
      std::this_thread::yield();
    }
    pc.Freeze(false);
    isDone = true;
  });
  std::uint32_t starts = 0;
  while (!isDone || starts == 0) {
    if (StartWith(*camera, kSmall) == S_OK) {
      ++starts;
      for (std::uint32_t number = 0;; ++number) {
        graph::CapturedFrame frame;
        if (camera->Next(steady_clock::now() + std::chrono::milliseconds(5), frame) !=
                graph::CaptureResult::kFrame ||
            isDone) {
          break;
        }
        const Bytes bytes(frame.data, frame.data + frame.size);
        camera->Recycle(frame);
        ASSERT_THAT(NumberIn(PictureOf(bytes, kSmall)), Optional(number));
      }
    }
    camera->Stop();
  }
  others.get();
}

}  // namespace
}  // namespace simulated_support
