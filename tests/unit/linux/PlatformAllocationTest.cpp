// Fails every allocation of the platform in turn: nothing crashes, hangs, throws or leaks, and the failed
// step succeeds when retried.
#include <malloc.h>

#include <iostream>

#include "support/FailingAllocations.h"
#include "support/linux/CaptureGraphTest.h"
#include "support/linux/TestJpegs.h"

namespace linux_support {
namespace {

constexpr std::size_t kFrames = 3;
// More allocations than any action makes; guards against an endless loop.
constexpr std::uint64_t kMaxAllocations = 5000;

// libjpeg is included because it is a C library with its own error handling.
FailingAllocations OfThePlatform() {
  return FailingAllocations::InLibraries({"libnuveqplatform", "libjpeg"});
}

class LowMemoryTest : public CaptureGraphTest {
 protected:
  void SetUp() override {
    CaptureGraphTest::SetUp();
    device = &AddLaptopCamera();
    AddPluggedInCamera("1-6", 4);
    // All frames are supplied before streaming starts, so waiting for more is pointless.
    kernel.ExpireTimeouts(true);
    const std::string builtIn = BuiltInCameraName();
    for (const EnumeratedDevice& seen : ListCaptureDevices()) {
      if (seen.displayName == builtIn) {
        moniker = seen.moniker;
      }
    }
    ASSERT_TRUE(moniker);
  }
  void TearDown() override {
    moniker.Reset();
    CaptureGraphTest::TearDown();
  }

  // Runs the action once for every allocation that it makes, which fails, and once without a failure.
  template <typename Action>
  void FailEveryAllocation(Persistence persistence, Action&& action) {
    const ResourceCounts before = ResourceCounts::Current(kernel);
    std::uint64_t number = 0;
    do {
      ASSERT_LT(++number, kMaxAllocations);
      SCOPED_TRACE("allocation " + std::to_string(number));
      allocations.FailNth(number, persistence);
      action();
      EXPECT_EQ(ResourceCounts::Current(kernel), before);
      EXPECT_THAT(kernel.Misuse(), ::testing::IsEmpty());
      ASSERT_FALSE(HasFailure());
    } while (allocations.HasFailed());
    allocations.FailNothing();
    RecordProperty("fault_injection_runs", std::to_string(number));
    EXPECT_GT(number, 20U) << "the action makes more allocations";
  }

  FailingAllocations allocations = OfThePlatform();
  ComPtr<IMoniker> moniker;  // of the built-in camera
};

// --- Lists ---

bool IsSame(const devices::CaptureDevice& a, const devices::CaptureDevice& b) {
  return a.displayName == b.displayName && a.name == b.name && a.node == b.node &&
         a.exclusionReason == b.exclusionReason;
}
bool IsSame(const devices::UsbDevice& a, const devices::UsbDevice& b) {
  return a.id == b.id && a.isRemovable == b.isRemovable && a.firstChildId == b.firstChildId;
}

class LowMemoryListTest : public LowMemoryTest, public ::testing::WithParamInterface<Persistence> {
 protected:
  // The list is complete or std::bad_alloc is thrown.
  template <typename Device>
  void ExpectCompleteOrThrows(std::vector<Device> (devices::DeviceProvider::*list)()) {
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

TEST_P(LowMemoryListTest, ListsAllCamerasOrThrows) {
  ExpectCompleteOrThrows(&devices::DeviceProvider::CaptureDevices);
}

TEST_P(LowMemoryListTest, ListsAllUsbDevicesOrThrows) {
  ExpectCompleteOrThrows(&devices::DeviceProvider::UsbDevices);
}

TEST_P(LowMemoryListTest, NeverSelectsAnotherCamera) {
  const std::string camera = BuiltInCameraName();
  ASSERT_FALSE(camera.empty());
  FailEveryAllocation(GetParam(), [&] {
    const std::string found = BuiltInCameraName();
    EXPECT_TRUE(found == camera || (found.empty() && allocations.HasFailed())) << found;
  });
  EXPECT_EQ(BuiltInCameraName(), camera);
}

INSTANTIATE_TEST_SUITE_P(Persistences, LowMemoryListTest,
                         ::testing::Values(Persistence::kTransient, Persistence::kPersistent),
                         [](const auto& tested) {
                           return tested.param == Persistence::kTransient ? "Transient" : "Persistent";
                         });

// --- Building, running and releasing a graph ---

GraphSettings WithSamples() {
  GraphSettings settings;
  settings.whichMethod = kCallSampleCB;
  return settings;
}

struct GraphCase {
  const char* name;
  GraphSettings settings;
  Persistence persistence;

  friend std::ostream& operator<<(std::ostream& out, const GraphCase& tested) { return out << tested.name; }
};

class LowMemoryGraphTest : public LowMemoryTest, public ::testing::WithParamInterface<GraphCase> {
 protected:
  // Returns true if every step succeeded at the first or second attempt and at most one frame was lost. A
  // failed step is followed only by Stop and the releases, as in the camera library.
  bool RunSession(const GraphSettings& settings) {
    FrameCollector frames;
    CaptureGraph built;
    bool hasSucceeded = Build(built, settings, frames);
    if (hasSucceeded) {
      // A run that fails late consumes frames.
      const auto run = [&] {
        Supply(settings);
        return built.control->Run();
      };
      hasSucceeded = Do(run) && WaitForAllFrames(built);
    }
    if (built.control) {
      EXPECT_EQ(built.control->Stop(), S_OK);
    }
    const std::size_t lost = allocations.HasFailed() ? 1 : 0;
    return hasSucceeded && frames.Count() + frames.SampleCalls() + lost >= kFrames;
  }

 private:
  // Retries a step once if an allocation failed in it.
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

  // Returns true if a frame completed the graph. A failed allocation may lose frames, but the wait must end.
  static bool WaitForAllFrames(const CaptureGraph& built) {
    LONG code = 0;
    EXPECT_EQ(built.Wait(kInfinite, code), S_OK);
    EXPECT_TRUE(WaitFor([] {
      const graph::StreamStats stats = graph::LatestStreamStats();
      return stats.delivered + stats.undecodable >= kFrames;
    }));
    return code == kEventComplete;
  }

  const std::vector<std::uint8_t> m_jpeg = TestJpeg(64, 48);
};

TEST_P(LowMemoryGraphTest, FailedStepsSucceedWhenRetried) {
  const GraphCase& tested = GetParam();
  FailEveryAllocation(tested.persistence, [&] {
    const auto mustSucceed = [&] {
      return tested.persistence == Persistence::kTransient || !allocations.HasFailed();
    };
    EXPECT_TRUE(RunSession(tested.settings) || !mustSucceed());
  });
  EXPECT_TRUE(RunSession(tested.settings)) << "without a failure";
}

INSTANTIATE_TEST_SUITE_P(
    Formats, LowMemoryGraphTest,
    ::testing::Values(GraphCase{"YuvTransient", {}, Persistence::kTransient},
                      GraphCase{"YuvPersistent", {}, Persistence::kPersistent},
                      GraphCase{"SamplesTransient", WithSamples(), Persistence::kTransient},
                      GraphCase{"SamplesPersistent", WithSamples(), Persistence::kPersistent},
                      GraphCase{"MjpgToArgbTransient", MjpgTo(MEDIASUBTYPE_ARGB32), Persistence::kTransient},
                      GraphCase{"MjpgToArgbPersistent", MjpgTo(MEDIASUBTYPE_ARGB32),
                                Persistence::kPersistent}),
    [](const auto& tested) { return tested.param.name; });

// --- Single calls ---

class LowMemoryCallTest : public LowMemoryTest {
 protected:
  // Expects that the call fails and returns null, for every allocation that it makes.
  template <typename Interface, typename Call>
  void ExpectNullWithoutMemory(Call&& call) {
    auto* const notNull = reinterpret_cast<Interface*>(this);
    for (std::uint64_t number = 1; number < kMaxAllocations; ++number) {
      Interface* out = notNull;
      allocations.FailNth(number, Persistence::kTransient);
      const HRESULT result = call(&out);
      allocations.FailNothing();
      if (!allocations.HasFailed()) {
        EXPECT_EQ(result, S_OK);
        Free(out);
        EXPECT_GT(number, 1U) << "the call makes allocations";
        return;
      }
      EXPECT_EQ(result, E_OUTOFMEMORY) << "allocation " << number;
      EXPECT_EQ(out, nullptr) << "allocation " << number;
    }
    FAIL() << "endless";
  }

 private:
  static void Free(IUnknown* object) { object->Release(); }
  static void Free(AM_MEDIA_TYPE* type) { const MediaType owner(type); }
};

TEST_F(LowMemoryCallTest, ReturnsNullAndOutOfMemory) {
  ComPtr<IBaseFilter> camera;
  ASSERT_EQ(moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter, camera.PutVoid()), S_OK);
  ExpectNullWithoutMemory<IEnumPins>([&](IEnumPins** out) { return camera->EnumPins(out); });
  const ComPtr<IPin> pin = FindPin(*camera.Get(), PINDIR_OUTPUT);
  ExpectNullWithoutMemory<IEnumMediaTypes>([&](IEnumMediaTypes** out) { return pin->EnumMediaTypes(out); });
  if (!FailingAllocations::ReachesMalloc()) {
    return;
  }
  // Media types are allocated as task memory.
  const ComPtr<IAMStreamConfig> config = StreamConfig(*pin.Get());
  ExpectNullWithoutMemory<AM_MEDIA_TYPE>([&](AM_MEDIA_TYPE** out) { return config->GetFormat(out); });
  ComPtr<IEnumMediaTypes> types;
  ASSERT_EQ(pin->EnumMediaTypes(types.Put()), S_OK);
  ExpectNullWithoutMemory<AM_MEDIA_TYPE>([&](AM_MEDIA_TYPE** out) { return types->Next(1, out, nullptr); });
}

// --- Memory that the platform's stats do not cover ---

class LowMemoryDecoderTest : public LowMemoryTest {
 protected:
  // Builds a graph on the built-in camera that decodes MJPG, up to the connection.
  void BuildUnconnected(CaptureGraph& built) {
    const GraphSettings settings = MjpgTo(MEDIASUBTYPE_ARGB32);
    ComPtr<IBaseFilter> camera;
    ASSERT_EQ(moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter, camera.PutVoid()), S_OK);
    ASSERT_EQ(built.Create(), S_OK);
    ASSERT_EQ(built.AddCamera(camera), S_OK);
    ASSERT_EQ(built.AddGrabber(&callback, settings), S_OK);
    ASSERT_EQ(built.FindPins(), S_OK);
    ASSERT_EQ(ChangeFormat(*built.cameraPin.Get(), settings.cameraSubtype, settings.width, settings.height,
                           settings.interval),
              S_OK);
  }
  // Fails every allocation of a connection with an MJPEG decoder.
  void FailEveryAllocationOfAConnection() {
    std::uint64_t number = 0;
    do {
      ASSERT_LT(++number, kMaxAllocations);
      ASSERT_NO_FATAL_FAILURE(Connect(number));
    } while (allocations.HasFailed());
    EXPECT_GT(number, 3U) << "the action makes more allocations";
  }

 private:
  void Connect(std::uint64_t number) {
    CaptureGraph built;
    allocations.FailNothing();
    ASSERT_NO_FATAL_FAILURE(BuildUnconnected(built));
    allocations.FailNth(number, Persistence::kPersistent);
    const HRESULT result = built.Connect();
    EXPECT_EQ(result, allocations.HasFailed() ? E_OUTOFMEMORY : S_OK);
  }
};

TEST_F(LowMemoryDecoderTest, LeaksNoMemory) {
  constexpr int kRounds = 50;
  ASSERT_NO_FATAL_FAILURE(FailEveryAllocationOfAConnection());
  const std::size_t before = mallinfo2().uordblks;
  for (int i = 0; i < kRounds; ++i) {
    ASSERT_NO_FATAL_FAILURE(FailEveryAllocationOfAConnection());
  }
  // Less than a leak in every round would be.
  constexpr std::size_t kTolerance = std::size_t{2} << 10;
  EXPECT_LE(mallinfo2().uordblks, before + kTolerance);
}

TEST_F(LowMemoryDecoderTest, PicturesLeakNoMemory) {
  // mallinfo2 covers one arena; threads use others by default.
  mallopt(M_ARENA_MAX, 1);  // NOLINT(concurrency-mt-unsafe): no other thread runs yet
  ASSERT_NO_FATAL_FAILURE(BuildUnconnected(graph));
  ASSERT_EQ(graph.Connect(), S_OK);
  FakeFrame frame;
  frame.bytes = TestJpeg(kPictureWidth, kPictureHeight);
  // Decoding ends at the missing picture.
  FakeFrame damaged = frame;
  constexpr std::size_t kWithinTheHeader = 20;
  damaged.bytes.resize(kWithinTheHeader);
  constexpr std::uint64_t kPictures = 20;
  const auto decode = [&] {
    ASSERT_EQ(Run(), S_OK);
    for (std::uint64_t i = 0; i < kPictures; ++i) {
      ASSERT_TRUE(device->Deliver(damaged));
      ASSERT_TRUE(device->Deliver(frame));
    }
    ASSERT_TRUE(WaitFor([=] { return graph::LatestStreamStats().delivered == kPictures; }));
    ASSERT_EQ(Stop(), S_OK);
  };
  // Received pictures must not count.
  callback.KeepFrames(false);
  ASSERT_NO_FATAL_FAILURE(decode());
  const std::size_t before = mallinfo2().uordblks;
  ASSERT_NO_FATAL_FAILURE(decode());
  // Less than one decoder.
  EXPECT_LE(mallinfo2().uordblks, before + (std::size_t{4} << 10));
}

}  // namespace
}  // namespace linux_support
