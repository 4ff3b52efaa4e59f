// Delivery of frames from the device to the callback, and handling of bad frames.
#include <pthread.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <numeric>
#include <thread>
#include <utility>

#include "support/linux/CaptureGraphTest.h"

namespace linux_support {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::SizeIs;

using CaptureStreamTest = CaptureGraphTest;
using BadFrameTest = CaptureGraphTest;

std::vector<int> FirstBytes(const std::vector<CollectedFrame>& frames) {
  std::vector<int> bytes;
  for (const CollectedFrame& frame : frames) {
    bytes.push_back(frame.bytes.empty() ? -1 : frame.bytes.front());
  }
  return bytes;
}

// --- Good frames ---

TEST_F(CaptureStreamTest, DeliversFramesCompleteAndInOrder) {
  BuildAndRun();
  FakeFrame frame = Picture(0);
  std::iota(frame.bytes.begin(), frame.bytes.end(), std::uint8_t{0});
  ASSERT_TRUE(device->Deliver(frame));
  ASSERT_TRUE(callback.WaitForFrames(1));
  EXPECT_EQ(callback.Frames().front().bytes, frame.bytes);
  Stream({1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
  EXPECT_THAT(FirstBytes(callback.Frames()), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
  EXPECT_EQ(Stop(), S_OK);
  const graph::StreamStats stats = graph::LatestStreamStats();
  EXPECT_EQ(stats.delivered, 11U);
  EXPECT_EQ(stats.tooShort + stats.damaged + stats.undecodable + stats.missed, 0U);
}

TEST_F(CaptureStreamTest, DeliversFramesInBufferMemory) {
  Build();
  std::atomic<int> inPlace = 0;
  callback.onFrame = [&](const CollectedFrame& frame) {
    inPlace += device->IsBufferMemory(frame.address, frame.bytes.size()) ? 1 : 0;
  };
  ASSERT_EQ(Run(), S_OK);
  Stream({1, 2, 3});
  EXPECT_EQ(inPlace, 3);
}

TEST_F(CaptureStreamTest, CallsBackOnANamedThread) {
  Build();
  std::array<char, 16> name{};
  callback.onFrame = [&](const CollectedFrame&) {
    pthread_getname_np(pthread_self(), name.data(), name.size());
  };
  ASSERT_EQ(Run(), S_OK);
  Stream({1});
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_STREQ(name.data(), "nuveq-capture");
}

TEST_F(CaptureStreamTest, TimestampsStartWithRunAndIncrease) {
  using Clock = std::chrono::steady_clock;
  Build();
  const Clock::time_point start = Clock::now();
  ASSERT_EQ(Run(), S_OK);
  Stream({1, 2, 3});
  const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
  double latest = -1;
  for (const CollectedFrame& frame : callback.Frames()) {
    EXPECT_GE(frame.time, 0);
    EXPECT_GT(frame.time, latest);
    latest = frame.time;
  }
  EXPECT_LE(latest, elapsed) << "counted from Run";
}

TEST_F(CaptureStreamTest, DeliversQueuedFramesAfterABlockedCallback) {
  BuildAndRun();
  callback.BlockCallbacks();
  ASSERT_TRUE(device->Deliver(Picture(1)));
  ASSERT_TRUE(callback.WaitForBlockedCallback());
  ASSERT_TRUE(device->Deliver(Picture(2))) << "the driver has other buffers";
  ASSERT_TRUE(device->Deliver(Picture(3)));
  callback.UnblockCallbacks();
  ASSERT_TRUE(callback.WaitForFrames(3));
  EXPECT_THAT(FirstBytes(callback.Frames()), ElementsAre(1, 2, 3));
}

TEST_F(CaptureStreamTest, RemovesLinePadding) {
  VideoDeviceSettings camera;
  camera.linePadding = 32;
  BuildAndRun({}, camera);
  FakeFrame padded;
  std::vector<std::uint8_t> packed;
  for (std::uint8_t line = 0; line < 48; ++line) {
    for (std::uint8_t x = 0; x < 128; ++x) {
      packed.push_back(static_cast<std::uint8_t>(line * 3 + x));
    }
    padded.bytes.insert(padded.bytes.end(), packed.end() - 128, packed.end());
    padded.bytes.insert(padded.bytes.end(), 32, 0xEE);
  }
  ASSERT_TRUE(device->Deliver(padded));
  ASSERT_TRUE(device->Deliver(padded));
  ASSERT_TRUE(callback.WaitForFrames(2));
  for (const CollectedFrame& frame : callback.Frames()) {
    EXPECT_EQ(frame.bytes, packed);
  }
}

TEST_F(CaptureStreamTest, RemovesLinePaddingOfOddWidths) {
  constexpr std::size_t kLine = std::size_t{2} * 63;
  VideoDeviceSettings camera;
  camera.formats = {{V4L2_PIX_FMT_YUYV, {Discrete(63, 48, {30})}}};
  camera.linePadding = 2;
  GraphSettings settings;
  settings.width = 63;
  BuildAndRun(settings, std::move(camera));
  FakeFrame padded;
  for (int line = 0; line < 48; ++line) {
    padded.bytes.insert(padded.bytes.end(), kLine, 7);
    padded.bytes.insert(padded.bytes.end(), 2, 0xEE);
  }
  ASSERT_TRUE(device->Deliver(padded));
  ASSERT_TRUE(callback.WaitForFrames(1));
  EXPECT_EQ(callback.Frames().front().bytes, std::vector<std::uint8_t>(kLine * 48, 7));
}

TEST_F(CaptureStreamTest, AcceptsFramesWithoutPaddingOfTheLastLine) {
  VideoDeviceSettings camera;
  camera.linePadding = 32;
  BuildAndRun({}, camera);
  FakeFrame frame;
  frame.bytes.assign(std::size_t{160} * 48 - 32, 7);
  ASSERT_TRUE(device->Deliver(frame));
  ASSERT_TRUE(callback.WaitForFrames(1));
  EXPECT_THAT(callback.Frames().front().bytes, SizeIs(kYuy2Size));
  EXPECT_THAT(callback.Frames().front().bytes, Each(7));
}

TEST_F(CaptureStreamTest, TruncatesFramesToThePictureSize) {
  BuildAndRun();
  FakeFrame frame = Picture(5);
  frame.bytes.insert(frame.bytes.end(), 0, 0);
  frame.bytes.resize(kYuy2Size + 16, 5);
  device->Supply(frame);
  ASSERT_TRUE(callback.WaitForFrames(1));
  EXPECT_THAT(callback.Frames().front().bytes, SizeIs(kYuy2Size));
}

TEST_F(CaptureStreamTest, StreamsWithFewBuffers) {
  for (const std::uint32_t buffers : {1U, 2U, 3U}) {
    VideoDeviceSettings camera;
    camera.maxBufferCount = buffers;
    BuildAndRun({}, camera);
    Stream({1, 2, 3, 4, 5, 6});
    EXPECT_EQ(Stop(), S_OK);
    graph.Release();
    UnplugLaptopCamera();
  }
}

TEST_F(CaptureStreamTest, CallsSampleCbIfRequested) {
  GraphSettings settings;
  settings.whichMethod = kCallSampleCB;
  BuildAndRun(settings);
  ASSERT_TRUE(device->Deliver(Picture(1)));
  ASSERT_TRUE(device->Deliver(Picture(2)));
  EXPECT_TRUE(WaitFor([&] { return callback.SampleCalls() == 2; }));
  EXPECT_EQ(WaitForEvent(), kEventComplete);
  EXPECT_EQ(callback.Count(), 0U);
}

TEST_F(CaptureStreamTest, SampleHoldsTheFrameDuringTheCallbackOnly) {
  GraphSettings settings;
  settings.whichMethod = kCallSampleCB;
  Build(settings);
  std::vector<std::uint8_t> bytes;
  ComPtr<IMediaSample> kept;
  Gate isKept;
  callback.onSample = [&](IMediaSample& sample) {
    BYTE* data = nullptr;
    EXPECT_EQ(sample.GetPointer(nullptr), E_POINTER);
    EXPECT_EQ(sample.GetPointer(&data), S_OK);
    bytes.assign(data, data + sample.GetActualDataLength());
    kept = ComPtr<IMediaSample>(&sample);
    isKept.Open();
  };
  ASSERT_EQ(Run(), S_OK);
  ASSERT_TRUE(device->Deliver(Picture(7)));
  ASSERT_TRUE(isKept.Wait());
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(bytes, Picture(7).bytes);
  auto* notNull = bytes.data();
  EXPECT_EQ(kept->GetPointer(&notNull), E_UNEXPECTED);
  EXPECT_EQ(notNull, nullptr);
  EXPECT_EQ(kept->GetActualDataLength(), 0);
}

TEST_F(CaptureStreamTest, GrabberRejectsInvalidSettings) {
  Build();
  AM_MEDIA_TYPE type{};
  EXPECT_EQ(graph.grabber->SetMediaType(&type), S_OK) << "any type";
  type.majortype = MEDIATYPE_Video;
  EXPECT_EQ(graph.grabber->SetMediaType(&type), S_OK);
  type.majortype = FourCcSubtype(0x73647561);
  EXPECT_EQ(graph.grabber->SetMediaType(&type), kInvalidMediaType);
  for (const LONG method : {-1, 2}) {
    EXPECT_EQ(graph.grabber->SetCallback(nullptr, method), E_INVALIDARG);
  }
  ASSERT_EQ(Run(), S_OK);
  Stream({1});
}

TEST_F(CaptureStreamTest, DeviceStaysOpenAndIsNotListedAgainBetweenRuns) {
  BuildAndRun();
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(device->OpenHandles(), 1U);
  kernel.Fail(VIDIOC_ENUM_FMT, EIO);
  kernel.Fail(kOpenCall, EIO);
  EXPECT_EQ(Run(), S_OK);
}

TEST_F(CaptureStreamTest, CompletesWithoutACallback) {
  device = &AddLaptopCamera();
  ASSERT_EQ(graph.Build(nullptr), S_OK);
  ASSERT_EQ(Run(), S_OK);
  ASSERT_TRUE(device->Deliver(Picture(1)));
  EXPECT_EQ(WaitForEvent(), kEventComplete);
}

TEST_F(CaptureStreamTest, UsesTheFormatOfTheNewGraph) {
  Build();
  graph.Release();
  GraphSettings smaller;
  smaller.width = 32;
  smaller.height = 24;
  ASSERT_EQ(graph.Build(&callback, smaller), S_OK);
  ASSERT_EQ(Run(), S_OK);
  FakeFrame frame;
  frame.bytes.assign(std::size_t{32} * 24 * 2, 9);
  ASSERT_TRUE(device->Deliver(frame));
  ASSERT_TRUE(callback.WaitForFrames(1));
  EXPECT_THAT(callback.Frames().front().bytes, SizeIs(std::size_t{32} * 24 * 2));
}

TEST_F(CaptureStreamTest, UsesTheLastFormatThatWasSetSuccessfully) {
  device = &AddLaptopCamera();
  ASSERT_EQ(graph.Create(), S_OK);
  ASSERT_EQ(graph.AddCamera(FirstCamera()), S_OK);
  ASSERT_EQ(graph.AddGrabber(&callback, {}), S_OK);
  graph.cameraPin = FindPin(*graph.camera.Get(), PINDIR_OUTPUT);
  graph.grabberPin = FindPin(*graph.grabberFilter.Get(), PINDIR_INPUT);
  ASSERT_EQ(ChangeFormat(*graph.cameraPin.Get(), MEDIASUBTYPE_YUY2, 32, 24, 333333), S_OK);
  ASSERT_EQ(ChangeFormat(*graph.cameraPin.Get(), MEDIASUBTYPE_YUY2, 640, 480, 333333), kInvalidMediaType)
      << "the driver substitutes another size";
  ASSERT_EQ(graph.Connect(), S_OK);
  ASSERT_EQ(Run(), S_OK);
  EXPECT_EQ(device->Format().width, 32U);
}

TEST_F(CaptureStreamTest, RestoresItsFormatAfterAnotherProgramChangedIt) {
  Build();
  const ComPtr<IBaseFilter> other = FirstCamera();
  ASSERT_EQ(ChangeFormat(*FindPin(*other.Get(), PINDIR_OUTPUT).Get(), MEDIASUBTYPE_MJPG, 128, 96, 166666),
            S_OK);
  ASSERT_EQ(Run(), S_OK);
  EXPECT_EQ(device->Format().pixelformat, V4L2_PIX_FMT_YUYV);
  EXPECT_EQ(device->Format().width, 64U);
  EXPECT_EQ(device->Interval().denominator, 30U);
}

// In a new process, because every run changes them.
TEST(StreamStatsDeathTest, AreZeroBeforeTheFirstRun) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto exitWithSum = [] {
    const graph::StreamStats stats = graph::LatestStreamStats();
    const std::uint64_t sum =
        stats.delivered + stats.tooShort + stats.damaged + stats.undecodable + stats.missed;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the new process has one thread
    std::exit(static_cast<int>(sum) + (stats.isDisconnected ? 1 : 0));
  };
  EXPECT_EXIT(exitWithSum(), ::testing::ExitedWithCode(0), "");
}

// --- Bad frames ---

TEST_F(BadFrameTest, ShortAndEmptyFramesAreDroppedAndCounted) {
  BuildAndRun();
  FakeFrame empty = Picture(1);
  empty.bytesUsed = 0;
  FakeFrame shortOne = Picture(2);
  shortOne.bytesUsed = static_cast<std::uint32_t>(kYuy2Size - 1);
  ASSERT_TRUE(device->Deliver(empty));
  ASSERT_TRUE(device->Deliver(shortOne));
  Stream({3});
  EXPECT_THAT(FirstBytes(callback.Frames()), ElementsAre(3));
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(graph::LatestStreamStats().tooShort, 2U);
  EXPECT_EQ(graph::LatestStreamStats().delivered, 1U);
}

TEST_F(BadFrameTest, FramesThatExceedTheirBufferAreDroppedAndCounted) {
  BuildAndRun();
  FakeFrame tooLong = Picture(1);
  tooLong.bytesUsed = 1U << 20;
  ASSERT_TRUE(device->Deliver(tooLong));
  Stream({2});
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(graph::LatestStreamStats().tooShort, 1U);
}

TEST_F(BadFrameTest, CompressedFramesMayHaveAnySizeButZero) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_MJPG));
  for (const std::size_t size : {0U, 1U}) {
    FakeFrame frame;
    frame.bytes.resize(size);
    ASSERT_TRUE(device->Deliver(frame));
  }
  ASSERT_TRUE(callback.WaitForFrames(1));
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_THAT(callback.Frames().front().bytes, SizeIs(1));
  EXPECT_EQ(graph::LatestStreamStats().tooShort, 1U);
}

TEST_F(BadFrameTest, FramesWithTheErrorFlagAreDroppedAndCounted) {
  BuildAndRun();
  FakeFrame marked = Picture(1);
  marked.flags = V4L2_BUF_FLAG_ERROR;
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(device->Deliver(marked)) << "the buffers must be queued again";
  }
  Stream({2});
  EXPECT_THAT(FirstBytes(callback.Frames()), ElementsAre(2));
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(graph::LatestStreamStats().damaged, 20U);
}

TEST_F(BadFrameTest, MissedFramesAreCounted) {
  BuildAndRun();
  Stream({1});
  FakeFrame after = Picture(2);
  after.lost = 3;
  ASSERT_TRUE(device->Deliver(after));
  ASSERT_TRUE(callback.WaitForFrames(2));
  Stream({3});
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(graph::LatestStreamStats().missed, 3U);
  EXPECT_EQ(graph::LatestStreamStats().delivered, 3U);
}

// Delivers frames with sequence numbers. Returns the first bytes of the frames that reach the callback.
class FrameSequenceTest : public CaptureGraphTest {
 protected:
  struct NumberedFrame {
    std::uint8_t byte;
    std::uint32_t sequence;
    std::uint32_t flags = 0;
  };
  std::vector<int> Deliver(const std::vector<NumberedFrame>& frames) {
    BuildAndRun();
    for (const auto& [byte, sequence, flags] : frames) {
      FakeFrame frame = Picture(byte);
      frame.sequence = sequence;
      frame.flags = flags;
      EXPECT_TRUE(device->Deliver(frame));
    }
    constexpr std::uint8_t kLast = 200;
    FakeFrame last = Picture(kLast);
    EXPECT_TRUE(device->Deliver(last));
    EXPECT_TRUE(WaitForByte(kLast));
    EXPECT_EQ(Stop(), S_OK);
    std::vector<int> bytes = FirstBytes(callback.Frames());
    EXPECT_EQ(bytes.back(), kLast);
    bytes.pop_back();
    return bytes;
  }

 private:
  bool WaitForByte(int byte) {
    for (std::size_t frames = 1; callback.WaitForFrames(frames); ++frames) {
      if (FirstBytes(callback.Frames()).back() == byte) {
        return true;
      }
    }
    return false;
  }
};

TEST_F(FrameSequenceTest, DropsFramesThatArriveOutOfOrder) {
  EXPECT_THAT(Deliver({{10, 0}, {12, 2}, {11, 1}, {13, 3}, {16, 6}, {14, 4}, {15, 5}, {17, 7}}),
              ElementsAre(10, 12, 13, 16, 17));
  EXPECT_EQ(graph::LatestStreamStats().missed, 3U);
  EXPECT_EQ(graph::LatestStreamStats().damaged + graph::LatestStreamStats().tooShort, 0U);
}

TEST_F(FrameSequenceTest, DropsFramesNumberedBeforeTheFirst) {
  EXPECT_THAT(Deliver({{11, 1}, {10, 0}, {12, 2}}), ElementsAre(11, 12));
  EXPECT_EQ(graph::LatestStreamStats().missed, 1U);
}

TEST_F(FrameSequenceTest, AcceptsConstantSequenceNumbers) {
  EXPECT_THAT(Deliver({{10, 0}, {11, 0}, {12, 0}}), ElementsAre(10, 11, 12));
  EXPECT_EQ(graph::LatestStreamStats().missed, 0U);
}

TEST_F(FrameSequenceTest, AcceptsSequenceNumbersThatRestart) {
  EXPECT_THAT(Deliver({{10, 7}, {11, 8}, {12, 0}, {13, 1}, {14, 0xFFFFFFFF}, {15, 0}}),
              ElementsAre(10, 11, 12, 13, 14, 15));
}

TEST_F(FrameSequenceTest, RestartedSequenceMayPassTheFormerOne) {
  EXPECT_THAT(Deliver({{10, 7}, {11, 8}, {12, 0}, {13, 1}, {14, 2}, {15, 3}, {16, 4}, {17, 5}, {18, 6}}),
              ElementsAre(10, 11, 12, 13, 14, 15, 16, 17, 18));
  EXPECT_EQ(graph::LatestStreamStats().missed, 0U);
}

TEST_F(FrameSequenceTest, NumberThatArrivesTwiceIsARestart) {
  EXPECT_THAT(Deliver({{10, 0}, {12, 2}, {11, 1}, {13, 1}, {14, 2}}), ElementsAre(10, 12, 13, 14));
}

TEST_F(FrameSequenceTest, NumbersOfDamagedFramesAreIgnoredIfTheyDecrease) {
  EXPECT_THAT(Deliver({{10, 7}, {0, 0, V4L2_BUF_FLAG_ERROR}, {11, 8}}), ElementsAre(10, 11));
  EXPECT_EQ(graph::LatestStreamStats().missed, 0U);
}

// Frames are remembered for 32 numbers.
TEST_F(FrameSequenceTest, FramesBeforeALongGapAreForgotten) {
  EXPECT_THAT(Deliver({{10, 0}, {11, 32}, {12, 27}, {13, 31}, {14, 32}}), ElementsAre(10, 11, 14));
}

TEST_F(FrameSequenceTest, EveryRunHasItsOwnNumbers) {
  Build();
  for (const std::uint32_t first : {0U, 5U, 3U}) {
    ASSERT_EQ(Run(), S_OK);
    FakeFrame frame = Picture(1);
    frame.sequence = first;
    const std::size_t before = callback.Count();
    ASSERT_TRUE(device->Deliver(frame));
    ASSERT_TRUE(callback.WaitForFrames(before + 1));
    EXPECT_EQ(Stop(), S_OK);
    EXPECT_EQ(graph::LatestStreamStats().missed, 0U);
  }
}

TEST_F(BadFrameTest, CountersRestartWithEveryRun) {
  BuildAndRun();
  FakeFrame marked = Picture(1);
  marked.flags = V4L2_BUF_FLAG_ERROR;
  ASSERT_TRUE(device->Deliver(marked));
  Stream({2});
  EXPECT_EQ(Stop(), S_OK);
  ASSERT_EQ(Run(), S_OK);
  Stream({3});
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(graph::LatestStreamStats().damaged, 0U);
  EXPECT_EQ(graph::LatestStreamStats().missed, 0U);
  EXPECT_EQ(graph::LatestStreamStats().delivered, 1U);
}

}  // namespace
}  // namespace linux_support
