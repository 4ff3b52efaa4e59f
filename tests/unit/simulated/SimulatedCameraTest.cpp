// The cameras of the simulated PC as sources of frames.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <future>

#include "support/simulated/Cameras.h"

namespace {

using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::Optional;

const VideoFormat kSmall = MakeFormat(kYuyv, 320, 240);

// What the next call of Next answers, its frame recycled.
Arrival NextArrival(CaptureSource& source, CaptureSource::Deadline deadline = FarDeadline()) {
  CapturedFrame frame;
  const Arrival arrival = source.Next(deadline, frame);
  if (arrival == Arrival::kFrame) {
    source.Recycle(frame);
  }
  return arrival;
}

std::optional<std::uint32_t> TakeNumber(CaptureSource& source, const VideoFormat& format = kSmall) {
  const Yuv picture = PictureOf(Take(source), format);
  return picture.y.empty() ? std::nullopt : NumberIn(picture);
}

TEST(SimulatedCamera, OffersWhatALaptopsCameraDoes) {
  SimulatedPc pc;
  std::vector<VideoFormat> formats;
  ASSERT_EQ(BuiltInCamera(pc)->ListFormats(formats), S_OK);
  EXPECT_THAT(formats,
              ElementsAre(VideoFormat{kYuyv, 640, 480, 333'333}, VideoFormat{kYuyv, 640, 480, 666'666},
                          VideoFormat{kYuyv, 320, 240, 333'333}, VideoFormat{kYuyv, 320, 240, 666'666},
                          VideoFormat{kYuyv, 1280, 720, 1'000'000}, VideoFormat{kMjpg, 640, 480, 333'333},
                          VideoFormat{kMjpg, 1280, 720, 333'333}, VideoFormat{kMjpg, 1920, 1080, 333'333}));
  ASSERT_EQ(PlugInCamera(pc)->ListFormats(formats), S_OK);
  EXPECT_THAT(formats,
              ElementsAre(VideoFormat{kMjpg, 1920, 1080, 166'666}, VideoFormat{kMjpg, 1920, 1080, 333'333}));
}

TEST(SimulatedCamera, OffersTheFormatsThatTheHostWants) {
  SimulatedPcSettings settings = Unpaced();
  settings.formats = {MakeFormat(kMjpg, 160, 120, 60)};
  SimulatedPc pc(settings);
  const auto camera = BuiltInCamera(pc);
  std::vector<VideoFormat> formats{kSmall};
  ASSERT_EQ(camera->ListFormats(formats), S_OK);
  EXPECT_EQ(formats, settings.formats);
  ASSERT_EQ(StartWith(*camera, settings.formats[0]), S_OK);
  EXPECT_THAT(TakeNumber(*camera, settings.formats[0]), Optional(0U));
}

TEST(SimulatedCamera, SetsTheNearestIntervalOfTheSizeAndLayout) {
  SimulatedPc pc;
  const auto camera = BuiltInCamera(pc);
  for (const auto& [wanted, set] :
       {std::pair{333'333, 333'333}, std::pair{400'000, 333'333}, std::pair{600'000, 666'666},
        std::pair{666'667, 666'666}, std::pair{0, 333'333}, std::pair{10'000'000, 666'666}}) {
    VideoFormat format{kYuyv, 640, 480, wanted};
    ASSERT_EQ(camera->SetFormat(format), S_OK);
    EXPECT_EQ(format, (VideoFormat{kYuyv, 640, 480, set}));
  }
}

TEST(SimulatedCamera, RefusesSizesAndLayoutsThatItDoesNotOffer) {
  SimulatedPc pc;
  const auto camera = BuiltInCamera(pc);
  for (const VideoFormat& unknown :
       {MakeFormat(kYuyv, 1920, 1080), MakeFormat(kMjpg, 320, 240), MakeFormat(kYuyv, 640, 240),
        MakeFormat(FourCc("NV12"), 640, 480), VideoFormat{}}) {
    VideoFormat format = unknown;
    EXPECT_EQ(camera->SetFormat(format), VFW_E_INVALIDMEDIATYPE);
    EXPECT_EQ(format, unknown);
  }
}

std::vector<VideoFormat> EveryFormat() {
  std::vector<VideoFormat> formats = LaptopCameraFormats();
  formats.push_back(MakeFormat(kMjpg, 1920, 1080, 60));
  return formats;
}

class EachFormat : public ::testing::TestWithParam<VideoFormat> {};

TEST_P(EachFormat, DeliversItsPicturesInOrderFromTheFirst) {
  const VideoFormat& format = GetParam();
  const bool isPlugIn = format.interval < 300'000;
  SimulatedPc pc(Unpaced());
  const auto camera = isPlugIn ? PlugInCamera(pc) : BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, format), S_OK);
  for (std::uint32_t number = 0; number < 12; ++number) {
    CapturedFrame frame;
    ASSERT_EQ(camera->Next(FarDeadline(), frame), Arrival::kFrame);
    EXPECT_NEAR(frame.time, number * static_cast<double>(format.interval) / 1e7, 1e-6);
    const Yuv picture = PictureOf(Bytes(frame.data, frame.data + frame.size), format);
    camera->Recycle(frame);
    ASSERT_FALSE(picture.y.empty());
    EXPECT_THAT(NumberIn(picture), Optional(number));
    EXPECT_LT(ColourError(picture), 6);
  }
}

INSTANTIATE_TEST_SUITE_P(All, EachFormat, ::testing::ValuesIn(EveryFormat()),
                         [](const auto& tested) { return NameOf(tested.param); });

TEST(SimulatedCamera, CountsFromZeroAtEveryStartAlsoAtAnotherSize) {
  SimulatedPc pc(Unpaced());
  const auto camera = BuiltInCamera(pc);
  for (const VideoFormat& format :
       {kSmall, MakeFormat(kMjpg, 640, 480), MakeFormat(kYuyv, 640, 480), kSmall}) {
    ASSERT_EQ(StartWith(*camera, format), S_OK);
    EXPECT_THAT(TakeNumber(*camera, format), Optional(0U));
    EXPECT_THAT(TakeNumber(*camera, format), Optional(1U));
    camera->Stop();
  }
}

TEST(SimulatedCamera, IsNeverFasterThanItsRateInRealTime) {
  SimulatedPc pc;
  const auto camera = BuiltInCamera(pc);
  const auto start = steady_clock::now();
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  for (std::uint32_t number = 0; number < 8; ++number) {
    EXPECT_THAT(TakeNumber(*camera), Optional(number));
    EXPECT_GE(steady_clock::now() - start, number * std::chrono::nanoseconds(33'333'300));
  }
}

TEST(SimulatedCamera, DeliversLateWhatNobodyTookInTime) {
  SimulatedPc pc;
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  std::this_thread::sleep_for(std::chrono::milliseconds(110));
  // Frames 0 to 3 are due by now: they are there without waiting.
  for (std::uint32_t number = 0; number < 4; ++number) {
    CapturedFrame frame;
    ASSERT_EQ(camera->Next(steady_clock::now(), frame), Arrival::kFrame);
    EXPECT_THAT(NumberIn(PictureOf(Bytes(frame.data, frame.data + frame.size), kSmall)), Optional(number));
    camera->Recycle(frame);
  }
}

TEST(SimulatedCamera, HasNothingBeforeTheNextFrameIsDue) {
  SimulatedPcSettings settings;
  settings.formats = {{kYuyv, 64, 48, 600'000'000}};  // a frame a minute
  SimulatedPc pc(settings);
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, settings.formats[0]), S_OK);
  EXPECT_EQ(NextArrival(*camera), Arrival::kFrame);
  const auto deadline = steady_clock::now() + std::chrono::milliseconds(20);
  EXPECT_EQ(NextArrival(*camera, deadline), Arrival::kNothing);
  EXPECT_GE(steady_clock::now(), deadline);
  EXPECT_EQ(NextArrival(*camera, steady_clock::now()), Arrival::kNothing);
}

TEST(SimulatedCamera, StreamsToOneSourceAtATime) {
  SimulatedPc pc(Unpaced());
  const auto first = BuiltInCamera(pc);
  const auto second = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*first, kSmall), S_OK);
  EXPECT_EQ(StartWith(*second, kSmall), kDeviceInUse);
  EXPECT_EQ(first->Start(), kDeviceInUse);
  EXPECT_THAT(TakeNumber(*first), Optional(0U));
  // A source that never streamed stops nobody else's stream.
  second->Stop();
  EXPECT_THAT(TakeNumber(*first), Optional(1U));
  EXPECT_EQ(StartWith(*PlugInCamera(pc), MakeFormat(kMjpg, 1920, 1080)), S_OK);
  first->Stop();
  ASSERT_EQ(second->Start(), S_OK);
  EXPECT_THAT(TakeNumber(*second), Optional(0U));
  EXPECT_EQ(first->Start(), kDeviceInUse);
}

TEST(SimulatedCamera, IsFreeAgainWhenAStreamingSourceIsDestroyed) {
  SimulatedPc pc(Unpaced());
  const auto second = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*BuiltInCamera(pc), kSmall), S_OK);
  EXPECT_EQ(StartWith(*second, kSmall), S_OK);
}

TEST(SimulatedCamera, NeedsAFormatToStartAndKeepsItWhileStreaming) {
  SimulatedPc pc(Unpaced());
  const auto camera = BuiltInCamera(pc);
  EXPECT_EQ(camera->Start(), E_UNEXPECTED);
  EXPECT_EQ(NextArrival(*camera), Arrival::kLost);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  VideoFormat another = MakeFormat(kYuyv, 640, 480);
  EXPECT_EQ(camera->SetFormat(another), kDeviceInUse);
  EXPECT_THAT(TakeNumber(*camera), Optional(0U));
  camera->Stop();
  EXPECT_EQ(NextArrival(*camera), Arrival::kLost);
}

TEST(SimulatedCamera, WaitsForItsOneBuffer) {
  SimulatedPc pc(Unpaced());
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  CapturedFrame frame;
  ASSERT_EQ(camera->Next(FarDeadline(), frame), Arrival::kFrame);
  const Bytes before(frame.data, frame.data + frame.size);
  EXPECT_EQ(NextArrival(*camera, steady_clock::now()), Arrival::kNothing);
  // Buffers that are not the one that is out count for nothing.
  CapturedFrame wrong = frame;
  wrong.buffer = 1;
  camera->Recycle(wrong);
  camera->Recycle(CapturedFrame{});
  EXPECT_EQ(NextArrival(*camera, steady_clock::now()), Arrival::kNothing);
  EXPECT_EQ(Bytes(frame.data, frame.data + frame.size), before);
  camera->Recycle(frame);
  camera->Recycle(frame);
  EXPECT_THAT(TakeNumber(*camera), Optional(1U));
}

TEST(SimulatedCamera, WakesUntilTheNextStart) {
  SimulatedPc pc(Unpaced());
  pc.Freeze(true);
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  auto waiting = std::async(std::launch::async, [&] { return NextArrival(*camera); });
  camera->Wake();
  EXPECT_EQ(waiting.get(), Arrival::kWoken);
  pc.Freeze(false);
  EXPECT_EQ(NextArrival(*camera), Arrival::kWoken);
  EXPECT_EQ(NextArrival(*camera, steady_clock::now()), Arrival::kWoken);
  camera->Stop();
  ASSERT_EQ(camera->Start(), S_OK);
  EXPECT_THAT(TakeNumber(*camera), Optional(0U));
}

TEST(SimulatedCamera, WakesOneSourceOnly) {
  SimulatedPc pc(Unpaced());
  const auto camera = BuiltInCamera(pc);
  const auto another = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  another->Wake();
  EXPECT_THAT(TakeNumber(*camera), Optional(0U));
}

TEST(SimulatedCamera, SaysNothingWhileItIsFrozenAndGoesOnWhereItStopped) {
  SimulatedPc pc;
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  EXPECT_THAT(TakeNumber(*camera), Optional(0U));
  pc.Freeze(true);
  const auto deadline = steady_clock::now() + std::chrono::milliseconds(100);
  EXPECT_EQ(NextArrival(*camera, deadline), Arrival::kNothing);
  EXPECT_GE(steady_clock::now(), deadline);
  const auto thaw = steady_clock::now();
  pc.Freeze(false);
  // No frames are made up for the time in between.
  for (std::uint32_t number = 1; number < 4; ++number) {
    EXPECT_THAT(TakeNumber(*camera), Optional(number));
    EXPECT_GE(steady_clock::now() - thaw, (number - 1) * std::chrono::nanoseconds(33'333'300));
  }
}

TEST(SimulatedCamera, GoesOnForASourceThatWaitsWhileItIsFrozen) {
  SimulatedPc pc;
  pc.Freeze(true);
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  auto waiting = std::async(std::launch::async, [&] { return TakeNumber(*camera); });
  pc.Freeze(false);
  EXPECT_THAT(waiting.get(), Optional(0U));
}

TEST(SimulatedCamera, IsLostWhenItIsRemovedAndWorksWhenItIsBack) {
  SimulatedPc pc(Unpaced());
  pc.Freeze(true);
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  auto waiting = std::async(std::launch::async, [&] { return NextArrival(*camera); });
  pc.RemoveBuiltInCamera();
  EXPECT_EQ(waiting.get(), Arrival::kLost);
  EXPECT_EQ(NextArrival(*camera), Arrival::kLost);
  camera->Stop();
  std::vector<VideoFormat> formats;
  VideoFormat format = kSmall;
  EXPECT_EQ(camera->ListFormats(formats), kDeviceGone);
  EXPECT_EQ(camera->SetFormat(format), kDeviceGone);
  EXPECT_EQ(camera->Start(), kDeviceGone);

  pc.ReturnBuiltInCamera();
  pc.Freeze(false);
  EXPECT_EQ(camera->ListFormats(formats), S_OK);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  EXPECT_THAT(TakeNumber(*camera), Optional(0U));
}

TEST(SimulatedCamera, StaysLostToItsStreamWhenItIsBackSoonAndIsFreeForAnother) {
  SimulatedPc pc(Unpaced());
  const auto camera = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  CapturedFrame frame;
  ASSERT_EQ(camera->Next(FarDeadline(), frame), Arrival::kFrame);
  pc.RemoveBuiltInCamera();
  pc.ReturnBuiltInCamera();
  // The frame that is out stays readable.
  EXPECT_THAT(NumberIn(PictureOf(Bytes(frame.data, frame.data + frame.size), kSmall)), Optional(0U));
  camera->Recycle(frame);
  EXPECT_EQ(NextArrival(*camera), Arrival::kLost);
  const auto another = BuiltInCamera(pc);
  ASSERT_EQ(StartWith(*another, kSmall), S_OK);
  camera->Stop();
  EXPECT_THAT(TakeNumber(*another), Optional(0U));
}

TEST(SimulatedCamera, OutlivesItsPc) {
  auto pc = std::make_unique<SimulatedPc>(Unpaced());
  const auto camera = BuiltInCamera(*pc);
  pc.reset();
  ASSERT_EQ(StartWith(*camera, kSmall), S_OK);
  EXPECT_THAT(TakeNumber(*camera), Optional(0U));
}

TEST(SimulatedCamera, StandsRemovalsFreezesAndWakesFromOtherThreads) {
  SimulatedPc pc(Unpaced());
  const auto camera = BuiltInCamera(pc);
  std::atomic<bool> isDone{false};
  auto others = std::async(std::launch::async, [&] {
    for (int i = 0; i < 300; ++i) {
      pc.Freeze(i % 2 == 0);
      pc.RemoveBuiltInCamera();
      pc.CaptureDevices();
      pc.ReturnBuiltInCamera();
      camera->Wake();
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
        CapturedFrame frame;
        if (camera->Next(steady_clock::now() + std::chrono::milliseconds(5), frame) != Arrival::kFrame ||
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
