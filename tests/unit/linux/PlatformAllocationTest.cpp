// Every allocation of the platform fails, one after another: nothing crashes, hangs, escapes or is left
// behind, and what failed works when it is tried again.
#include <malloc.h>

#include <iostream>

#include "support/FailingAllocations.h"
#include "support/linux/CaptureGraphTest.h"
#include "support/linux/Jpegs.h"

namespace {

constexpr LONG kForEver = -1;
constexpr std::size_t kFrames = 3;
// More than anything here makes; reached only by what does not end.
constexpr std::uint64_t kTooManyAllocations = 5000;

// The decoder of JPEG pictures is a C library, whose failures have a way of their own.
FailingAllocations OfThePlatform() {
  return FailingAllocations::InLibraries({"libnuveqplatform", "libjpeg"});
}

class ShortMemory : public GraphTest {
 protected:
  void SetUp() override {
    GraphTest::SetUp();
    device = &AddLaptopCamera();
    AddPluggedInCamera("1-6", 4);
    // All frames are there when streaming begins: where none is left, none will come.
    kernel.LetTimeRunOut(true);
    const std::string builtIn = BuiltInCamera();
    for (const CaptureDeviceSeen& seen : CaptureDevicesSeen()) {
      if (seen.displayName == builtIn) {
        moniker = seen.moniker;
      }
    }
    ASSERT_TRUE(moniker);
  }
  void TearDown() override {
    moniker.Reset();
    GraphTest::TearDown();
  }

  // Runs the action with every allocation failing in turn, the last time without a failure.
  template <typename Action>
  void FailEveryAllocation(Persistence persistence, Action&& action) {
    const Holdings before = Holdings::Now(kernel);
    std::uint64_t number = 0;
    do {
      ASSERT_LT(++number, kTooManyAllocations);
      SCOPED_TRACE("allocation " + std::to_string(number));
      allocations.FailNth(number, persistence);
      action();
      EXPECT_EQ(Holdings::Now(kernel), before);
      EXPECT_THAT(kernel.Misuse(), ::testing::IsEmpty());
      ASSERT_FALSE(HasFailure());
    } while (allocations.HasFailed());
    allocations.FailNothing();
    std::cout << number << " runs\n";
    EXPECT_GT(number, 20U) << "there are more allocations";
  }

  FailingAllocations allocations = OfThePlatform();
  ComPtr<IMoniker> moniker;  // of the laptop's own camera
};

// --- Lists ---

bool IsSame(const devices::CaptureDevice& a, const devices::CaptureDevice& b) {
  return a.displayName == b.displayName && a.name == b.name && a.node == b.node &&
         a.exclusionReason == b.exclusionReason;
}
bool IsSame(const devices::UsbDevice& a, const devices::UsbDevice& b) {
  return a.id == b.id && a.isRemovable == b.isRemovable && a.firstChildId == b.firstChildId;
}

class ShortMemoryOfAList : public ShortMemory, public ::testing::WithParamInterface<Persistence> {
 protected:
  // Of devices, from a function of the machine's tree.
  template <typename Device>
  void ExpectWholeOrRefused(std::vector<Device> (devices::DeviceProvider::*list)()) {
    const std::vector<Device> whole = (devices::CurrentDeviceProvider().get()->*list)();
    ASSERT_EQ(whole.size(), 2U);
    FailEveryAllocation(GetParam(), [&] {
      try {
        const std::vector<Device> listed = (devices::CurrentDeviceProvider().get()->*list)();
        ASSERT_EQ(listed.size(), whole.size());
        EXPECT_TRUE(IsSame(listed[0], whole[0]));
        EXPECT_TRUE(IsSame(listed[1], whole[1]));
      } catch (const std::bad_alloc&) {
        EXPECT_TRUE(allocations.HasFailed());
      }
    });
  }
};

TEST_P(ShortMemoryOfAList, GivesTheWholeListOfCamerasOrNone) {
  ExpectWholeOrRefused(&devices::DeviceProvider::CaptureDevices);
}

TEST_P(ShortMemoryOfAList, GivesTheWholeListOfUsbDevicesOrNone) {
  ExpectWholeOrRefused(&devices::DeviceProvider::UsbDevices);
}

TEST_P(ShortMemoryOfAList, KeepsTheBuiltInCameraFromBeingFoundAtMost) {
  const std::string camera = BuiltInCamera();
  ASSERT_FALSE(camera.empty());
  FailEveryAllocation(GetParam(), [&] {
    const std::string found = BuiltInCamera();
    EXPECT_TRUE(found == camera || (found.empty() && allocations.HasFailed())) << found;
  });
  EXPECT_EQ(BuiltInCamera(), camera);
}

INSTANTIATE_TEST_SUITE_P(Persistences, ShortMemoryOfAList,
                         ::testing::Values(Persistence::kTransient, Persistence::kPersistent),
                         [](const auto& tested) {
                           return tested.param == Persistence::kTransient ? "Once" : "ForGood";
                         });

// --- From a camera's name to the release of its graph ---

GraphSettings WithSamples() {
  GraphSettings settings;
  settings.whichMethod = kCallSampleCB;
  return settings;
}

struct Shortage {
  const char* name;
  GraphSettings settings;
  Persistence persistence;

  friend std::ostream& operator<<(std::ostream& out, const Shortage& shortage) {
    return out << shortage.name;
  }
};

class ShortMemoryOfAGraph : public ShortMemory, public ::testing::WithParamInterface<Shortage> {
 protected:
  // True when every step succeeded, at the second try at the latest, and no more than one frame was lost.
  // After a step that did not there is only what the camera library does at the end in any case.
  bool Use(const GraphSettings& settings) {
    FrameCollector frames;
    CaptureGraph built;
    bool hasSucceeded = Build(built, settings, frames);
    if (hasSucceeded) {
      // A run that fails late takes frames with it.
      const auto run = [&] {
        Supply(settings);
        return built.control->Run();
      };
      hasSucceeded = Do(run) && WatchToTheEnd(built);
    }
    if (built.control) {
      EXPECT_EQ(built.control->Stop(), S_OK);
    }
    const std::size_t lost = allocations.HasFailed() ? 1 : 0;
    return hasSucceeded && frames.Count() + frames.SampleCalls() + lost >= kFrames;
  }

 private:
  template <typename Step>
  bool Do(Step&& step) {
    const std::uint64_t failuresBefore = allocations.Failures();
    const HRESULT result = step();
    return result == S_OK || (allocations.Failures() != failuresBefore && step() == S_OK);
  }

  bool Build(CaptureGraph& built, const GraphSettings& settings, FrameCollector& frames) {
    ComPtr<IBaseFilter> camera;
    return Do([&] { return moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter, camera.PutVoid()); }) &&
           Do([&] { return built.Create(); }) && Do([&] { return built.AddCamera(camera); }) &&
           Do([&] { return built.AddGrabber(&frames, settings); }) && Do([&] { return built.FindPins(); }) &&
           Do([&] {
             std::vector<MediaType> types;
             return ListMediaTypes(*built.cameraPin.Get(), types);
           }) &&
           Do([&] {
             return ChangeFormat(*built.cameraPin.Get(), settings.cameraSubtype, settings.width,
                                 settings.height, settings.interval);
           }) &&
           Do([&] { return built.Connect(); });
  }

  void Supply(const GraphSettings& settings) {
    for (std::size_t i = 0; i < kFrames; ++i) {
      FakeFrame frame = Picture(static_cast<std::uint8_t>(i));
      if (settings.cameraSubtype == MEDIASUBTYPE_MJPG) {
        frame.bytes = m_jpeg;
      }
      device->Supply(frame);
    }
  }

  // True when a frame completed the graph. Frames may be lost for want of memory; the end of waiting for them
  // may not.
  static bool WatchToTheEnd(const CaptureGraph& built) {
    LONG code = 0;
    EXPECT_EQ(built.Wait(kForEver, code), S_OK);
    EXPECT_TRUE(WaitUntil([] {
      const graph::StreamStats counters = graph::LatestStreamStats();
      return counters.delivered + counters.undecodable >= kFrames;
    }));
    return code == kEventComplete;
  }

  const std::vector<std::uint8_t> m_jpeg = TestJpeg(64, 48);
};

TEST_P(ShortMemoryOfAGraph, IsSurvivedAndMadeUpForByTryingAgain) {
  const Shortage& shortage = GetParam();
  FailEveryAllocation(shortage.persistence, [&] {
    const auto isToSucceed = [&] {
      return shortage.persistence == Persistence::kTransient || !allocations.HasFailed();
    };
    EXPECT_TRUE(Use(shortage.settings) || !isToSucceed());
  });
  EXPECT_TRUE(Use(shortage.settings)) << "without a failure";
}

INSTANTIATE_TEST_SUITE_P(
    Formats, ShortMemoryOfAGraph,
    ::testing::Values(Shortage{"YuvOnce", {}, Persistence::kTransient},
                      Shortage{"YuvForGood", {}, Persistence::kPersistent},
                      Shortage{"SamplesOnce", WithSamples(), Persistence::kTransient},
                      Shortage{"SamplesForGood", WithSamples(), Persistence::kPersistent},
                      Shortage{"MjpgToArgbOnce", MjpgTo(MEDIASUBTYPE_ARGB32), Persistence::kTransient},
                      Shortage{"MjpgToArgbForGood", MjpgTo(MEDIASUBTYPE_ARGB32), Persistence::kPersistent},
                      Shortage{"MjpgToYuvOnce", MjpgTo(MEDIASUBTYPE_YUY2), Persistence::kTransient},
                      Shortage{"MjpgToYuvForGood", MjpgTo(MEDIASUBTYPE_YUY2), Persistence::kPersistent}),
    [](const auto& tested) { return tested.param.name; });

// --- What no counter of the platform's shows ---

class ShortMemoryOfADecoder : public ShortMemory {
 protected:
  // Fails every allocation of a connection with a decoder of pictures in it.
  void FailEveryAllocationOfAConnection() {
    std::uint64_t number = 0;
    do {
      ASSERT_LT(++number, kTooManyAllocations);
      ASSERT_NO_FATAL_FAILURE(Connect(number));
    } while (allocations.HasFailed());
    EXPECT_GT(number, 3U) << "there are more allocations";
  }

 private:
  void Connect(std::uint64_t number) {
    const GraphSettings settings = MjpgTo(MEDIASUBTYPE_ARGB32);
    CaptureGraph built;
    ComPtr<IBaseFilter> camera;
    allocations.FailNothing();
    ASSERT_EQ(moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter, camera.PutVoid()), S_OK);
    ASSERT_EQ(built.Create(), S_OK);
    ASSERT_EQ(built.AddCamera(camera), S_OK);
    ASSERT_EQ(built.AddGrabber(&callback, settings), S_OK);
    ASSERT_EQ(built.FindPins(), S_OK);
    ASSERT_EQ(ChangeFormat(*built.cameraPin.Get(), settings.cameraSubtype, settings.width, settings.height,
                           settings.interval),
              S_OK);
    allocations.FailNth(number, Persistence::kPersistent);
    const HRESULT result = built.Connect();
    EXPECT_EQ(result, allocations.HasFailed() ? E_OUTOFMEMORY : S_OK);
  }
};

TEST_F(ShortMemoryOfADecoder, LeavesTheHeapAsItWas) {
  constexpr int kRounds = 50;
  ASSERT_NO_FATAL_FAILURE(FailEveryAllocationOfAConnection());
  const std::size_t before = mallinfo2().uordblks;
  for (int i = 0; i < kRounds; ++i) {
    ASSERT_NO_FATAL_FAILURE(FailEveryAllocationOfAConnection());
  }
  // Less than anything that is left every time.
  constexpr std::size_t kTolerance = std::size_t{2} << 10;
  EXPECT_LE(mallinfo2().uordblks, before + kTolerance);
}

}  // namespace
