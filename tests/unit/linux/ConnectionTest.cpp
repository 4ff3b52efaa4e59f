// IGraphBuilder::Connect, and graphs that share a device.
#include <sys/syscall.h>

#include <cerrno>
#include <utility>

#include "com/ComObject.h"
#include "support/FailingSystemCall_linux.h"
#include "support/linux/CaptureGraphTest.h"

namespace linux_support {
namespace {

using ::testing::SizeIs;

class ConnectionTest : public CaptureGraphTest {
 protected:
  // Builds a graph on the laptop camera, which is added first if it does not exist, up to the connection.
  void BuildUnconnected(CaptureGraph& built, const GraphSettings& settings = {},
                        VideoDeviceSettings camera = {}) {
    if (device == nullptr) {
      device = &AddLaptopCamera(std::move(camera));
    }
    ASSERT_EQ(built.Create(), S_OK);
    ASSERT_EQ(built.AddCamera(FirstCamera()), S_OK);
    ASSERT_EQ(built.AddGrabber(&callback, settings), S_OK);
    ASSERT_EQ(built.FindPins(), S_OK);
  }
};

using SharedDeviceTest = CaptureGraphTest;

// --- Connecting ---

TEST_F(ConnectionTest, FailsForTypesThatCannotBeConverted) {
  device = &AddLaptopCamera();
  GraphSettings settings;
  settings.grabberSubtype = MEDIASUBTYPE_ARGB32;
  EXPECT_EQ(graph.Build(&callback, settings), VFW_E_CANNOT_CONNECT);
  for (const GUID& subtype : {MEDIASUBTYPE_NV12, MEDIASUBTYPE_YUY2}) {
    graph.Release();
    EXPECT_EQ(graph.Build(&callback, MjpgTo(subtype)), VFW_E_CANNOT_CONNECT);
  }
}

TEST_F(ConnectionTest, AcceptsAnySubtypeIfNoneIsRequired) {
  GraphSettings settings;
  settings.grabberSubtype = {};
  BuildAndRun(settings);
  Stream({1});
}

TEST_F(ConnectionTest, FailsIfThePinsAreAlreadyConnected) {
  BuildAndRun();
  EXPECT_EQ(graph.Connect(), kAlreadyConnected);
  Stream({1});
}

TEST_F(ConnectionTest, FailsFromInputToOutput) {
  BuildUnconnected(graph);
  EXPECT_EQ(graph.builder->Connect(graph.grabberPin.Get(), graph.cameraPin.Get()), VFW_E_CANNOT_CONNECT);
  EXPECT_EQ(graph.builder->Connect(graph.cameraPin.Get(), graph.cameraPin.Get()), VFW_E_CANNOT_CONNECT);
}

TEST_F(ConnectionTest, RequiresBothFiltersInTheGraph) {
  BuildUnconnected(graph);
  CaptureGraph other;
  BuildUnconnected(other);
  EXPECT_EQ(graph.builder->Connect(graph.cameraPin.Get(), other.grabberPin.Get()), kNotInGraph);
  EXPECT_EQ(graph.builder->Connect(other.cameraPin.Get(), graph.grabberPin.Get()), kNotInGraph);
  EXPECT_EQ(graph.Connect(), S_OK);
}

// A pin of the host whose filter cannot be found.
class PinWithoutFilter : public com::ComObject<IPin> {
 public:
  PinWithoutFilter(HRESULT result, IBaseFilter* filter) : m_result(result), m_filter(filter) {}

  HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* info) override {
    info->pFilter = m_filter;
    return m_result;
  }
  HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* direction) override {
    *direction = PINDIR_INPUT;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** /*enumerator*/) override { return E_NOTIMPL; }

 private:
  const HRESULT m_result;
  IBaseFilter* const m_filter;
};

TEST_F(ConnectionTest, RejectsPinsWithoutAFilter) {
  BuildUnconnected(graph);
  const auto failing = com::MakeComObject<PinWithoutFilter>(E_FAIL, graph.grabberFilter.Get());
  EXPECT_EQ(graph.builder->Connect(graph.cameraPin.Get(), failing.Get()), kNotInGraph);
  const auto empty = com::MakeComObject<PinWithoutFilter>(S_OK, nullptr);
  EXPECT_EQ(graph.builder->Connect(graph.cameraPin.Get(), empty.Get()), kNotInGraph);
}

TEST_F(ConnectionTest, GraphHasOneConnection) {
  Build();
  AddPluggedInCamera("1-6", 4);
  ComPtr<IBaseFilter> secondCamera;
  ASSERT_EQ(BindCamera("vid_046d", secondCamera), S_OK);
  CaptureGraph other;
  ASSERT_EQ(other.Create(), S_OK);
  ASSERT_EQ(other.AddGrabber(&callback, {}), S_OK);
  ASSERT_EQ(graph.builder->AddFilter(secondCamera.Get(), nullptr), S_OK);
  ASSERT_EQ(graph.builder->AddFilter(other.grabberFilter.Get(), nullptr), S_OK);
  EXPECT_EQ(graph.builder->Connect(FindPin(*secondCamera.Get(), PINDIR_OUTPUT).Get(),
                                   FindPin(*other.grabberFilter.Get(), PINDIR_INPUT).Get()),
            kAlreadyConnected);
  ASSERT_EQ(Run(), S_OK);
  Stream({1});
}

TEST_F(ConnectionTest, PinHasOneConnectionInAllGraphs) {
  Build();
  // Another graph with the same camera, then with the same grabber.
  for (const bool sharesCamera : {true, false}) {
    CaptureGraph other;
    BuildUnconnected(other);
    const ComPtr<IBaseFilter> shared = sharesCamera ? graph.camera : graph.grabberFilter;
    ASSERT_EQ(other.builder->AddFilter(shared.Get(), nullptr), S_OK);
    IPin* const output = sharesCamera ? graph.cameraPin.Get() : other.cameraPin.Get();
    IPin* const input = sharesCamera ? other.grabberPin.Get() : graph.grabberPin.Get();
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(other.builder->Connect(output, input), kAlreadyConnected)
          << sharesCamera << ", attempt " << i;
    }
    EXPECT_EQ(other.Connect(), S_OK) << "the other pin is free again";
  }
  ASSERT_EQ(Run(), S_OK);
  Stream({1});
}

TEST_F(ConnectionTest, AddingAFilterTwiceHasNoEffect) {
  BuildUnconnected(graph);
  const ULONG references = graph.camera->AddRef();
  EXPECT_EQ(graph.builder->AddFilter(graph.camera.Get(), L"again"), S_OK);
  EXPECT_EQ(graph.camera->Release(), references - 1);
}

TEST_F(ConnectionTest, FailureLeavesTheGraphUnconnected) {
  GraphSettings nv12;
  nv12.grabberSubtype = MEDIASUBTYPE_NV12;
  BuildUnconnected(graph, nv12);
  EXPECT_EQ(graph.Connect(), VFW_E_CANNOT_CONNECT);
  EXPECT_EQ(Run(), kNotConnected);
  AM_MEDIA_TYPE any{};
  ASSERT_EQ(graph.grabber->SetMediaType(&any), S_OK);
  EXPECT_EQ(graph.Connect(), S_OK);
  EXPECT_EQ(Run(), S_OK);
}

TEST_F(ConnectionTest, ReportsTheErrorOfTheCamera) {
  BuildUnconnected(graph);
  // Each call fails once.
  for (const unsigned long call : {kOpenCall, static_cast<unsigned long>(VIDIOC_S_FMT)}) {
    kernel.Fail(call, EACCES, Persistence::kTransient);
    EXPECT_EQ(graph.Connect(), E_ACCESSDENIED);
    EXPECT_EQ(Run(), kNotConnected);
  }
  EXPECT_EQ(graph.Connect(), S_OK);
}

TEST_F(ConnectionTest, UsesThePreferredFormatIfNoneWasSet) {
  VideoDeviceSettings camera;
  camera.substituteInterval = [](v4l2_fract& interval) { interval = {1, 12}; };
  BuildUnconnected(graph, {}, camera);
  ASSERT_EQ(graph.Connect(), S_OK);
  EXPECT_EQ(DescribeCurrentFormat(*graph.cameraPin.Get()), "YUY2 64x48 833333");
  ASSERT_EQ(Run(), S_OK);
  Stream({1});
}

TEST_F(ConnectionTest, NewGrabberAcceptsAnySubtypeAndDoesNotComplete) {
  device = &AddLaptopCamera();
  ASSERT_EQ(graph.Create(), S_OK);
  ASSERT_EQ(graph.AddCamera(FirstCamera()), S_OK);
  ASSERT_EQ(CoCreateInstance(CLSID_SampleGrabber, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                             graph.grabberFilter.PutVoid()),
            S_OK);
  ASSERT_EQ(graph.builder->AddFilter(graph.grabberFilter.Get(), nullptr), S_OK);
  ASSERT_EQ(graph.FindPins(), S_OK);
  ASSERT_EQ(graph.Connect(), S_OK);
  ASSERT_EQ(Run(), S_OK);
  device->Supply(Picture(1));
  device->Supply(Picture(2));
  // The first frame has been processed when the second one is counted.
  ASSERT_TRUE(WaitFor([] { return graph::LatestStreamStats().delivered == 2; }));
  EXPECT_EQ(WaitResult(0), E_ABORT);
}

TEST_F(ConnectionTest, FormatCannotBeChangedWhileConnected) {
  Build();
  EXPECT_EQ(ChangeFormat(*graph.cameraPin.Get(), MEDIASUBTYPE_YUY2, 32, 24, 333333), kAlreadyConnected);
  ASSERT_EQ(Run(), S_OK);
  Stream({1});
}

TEST_F(ConnectionTest, CameraCannotBeBoundWithoutDescriptors) {
  AddLaptopCamera();
  const ComPtr<IMoniker> moniker = ListCaptureDevices().front().moniker;
  ComPtr<IBaseFilter> camera;
  EXPECT_TRUE(support::WithFailingSystemCall(SYS_eventfd2, EMFILE, [&] {
    EXPECT_EQ(moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter, camera.PutVoid()), E_FAIL);
  }));
  EXPECT_FALSE(camera);
  EXPECT_EQ(moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter, camera.PutVoid()), S_OK);
}

// --- Several graphs on one device ---

TEST_F(SharedDeviceTest, SecondGraphCannotRun) {
  BuildAndRun();
  Stream({1});
  FrameCollector otherCallback;
  CaptureGraph other;
  HRESULT result = other.Build(&otherCallback);
  if (result == S_OK) {
    result = other.control->Run();
  }
  EXPECT_EQ(result, kDeviceInUse);
  Stream({2});
  other.Release();
  Stream({3});
}

TEST_F(SharedDeviceTest, GraphsCanRunOneAfterTheOther) {
  Build();
  FrameCollector otherCallback;
  CaptureGraph other;
  ASSERT_EQ(other.Build(&otherCallback), S_OK);
  ASSERT_EQ(Run(), S_OK);
  EXPECT_EQ(other.control->Run(), kDeviceInUse);
  Stream({1});
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(other.control->Run(), S_OK);
  ASSERT_TRUE(device->Deliver(Picture(2)));
  EXPECT_TRUE(otherCallback.WaitForFrames(1));
  EXPECT_EQ(other.control->Stop(), S_OK);
  other.Release();
}

TEST_F(SharedDeviceTest, FormatsCanBeListedWhileStreaming) {
  BuildAndRun();
  Stream({1});
  for (int i = 0; i < 3; ++i) {
    const ComPtr<IBaseFilter> second = FirstCamera();
    std::vector<MediaType> types;
    EXPECT_EQ(ListMediaTypes(*FindPin(*second.Get(), PINDIR_OUTPUT).Get(), types), S_OK);
    EXPECT_THAT(types, SizeIs(6));
  }
  Stream({2, 3});
}

TEST_F(SharedDeviceTest, RunReportsWhyTheDeviceCannotStart) {
  Build();
  for (const auto& [error, expected] :
       {std::pair{EBUSY, kDeviceInUse}, std::pair{EIO, kDeviceIoError}, std::pair{ETIMEDOUT, kDeviceIoError},
        std::pair{EPROTO, kDeviceIoError}, std::pair{ENODEV, kDeviceGone}, std::pair{ENOSPC, kNoBandwidth},
        std::pair{EMFILE, kTooManyOpen}, std::pair{ENFILE, kTooManyOpen}, std::pair{ENOMEM, E_OUTOFMEMORY},
        std::pair{EACCES, E_ACCESSDENIED}, std::pair{ENOTTY, E_FAIL}}) {
    for (const unsigned long call : std::initializer_list<unsigned long>{
             VIDIOC_REQBUFS, VIDIOC_QUERYBUF, kMapCall, VIDIOC_QBUF, VIDIOC_STREAMON, VIDIOC_S_FMT}) {
      kernel.Fail(call, error);
      EXPECT_EQ(Run(), expected) << error << " of call " << call;
      kernel.FailNothing();
    }
  }
  EXPECT_EQ(Run(), S_OK) << "without the failure";
  Stream({1});
}

TEST_F(SharedDeviceTest, RunFailsIfTheDriverHasNoBuffers) {
  VideoDeviceSettings camera;
  camera.maxBufferCount = 0;
  Build({}, std::move(camera));
  EXPECT_EQ(Run(), E_OUTOFMEMORY);
}

TEST_F(SharedDeviceTest, RunFailsIfBuffersAreSmallerThanAPicture) {
  constexpr std::uint32_t kPageSize = 4096;
  VideoDeviceSettings camera;
  camera.formats = {{V4L2_PIX_FMT_YUYV, {Discrete(64, 48, {30}), Discrete(64, 32, {30})}}};
  camera.bufferSize = kPageSize;
  Build({}, camera);
  EXPECT_EQ(Run(), kDeviceIoError);
  graph.Release();
  GraphSettings wholePage;
  wholePage.height = 32;
  ASSERT_EQ(graph.Build(&callback, wholePage), S_OK);
  ASSERT_EQ(Run(), S_OK);
  FakeFrame frame;
  frame.bytes.resize(kPageSize);
  ASSERT_TRUE(device->Deliver(frame));
  EXPECT_TRUE(callback.WaitForFrames(1));
}

}  // namespace
}  // namespace linux_support
