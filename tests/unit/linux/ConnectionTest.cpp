// IGraphBuilder::Connect, and graphs that share a device.
#include <utility>

#include "support/linux/CaptureGraphTest.h"

namespace linux_support {
namespace {

using ::testing::SizeIs;

using ConnectionTest = CaptureGraphTest;
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
  EXPECT_LT(graph.Connect(), 0);
  Stream({1});
}

TEST_F(ConnectionTest, FailsFromInputToOutput) {
  Build();
  EXPECT_LT(graph.builder->Connect(graph.grabberPin.Get(), graph.cameraPin.Get()), 0);
}

TEST_F(ConnectionTest, RequiresBothFiltersInTheGraph) {
  Build();
  CaptureGraph other;
  ASSERT_EQ(other.Create(), S_OK);
  ASSERT_EQ(other.AddGrabber(&callback, {}), S_OK);
  const ComPtr<IPin> pin = FindPin(*other.grabberFilter.Get(), PINDIR_INPUT);
  EXPECT_LT(graph.builder->Connect(graph.cameraPin.Get(), pin.Get()), 0);
}

TEST_F(ConnectionTest, FormatCannotBeChangedWhileConnected) {
  Build();
  EXPECT_NE(ChangeFormat(*graph.cameraPin.Get(), MEDIASUBTYPE_YUY2, 32, 24, 333333), S_OK)
      << "the pin is connected";
  ASSERT_EQ(Run(), S_OK);
  Stream({1});
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
       {std::pair{EBUSY, kDeviceInUse}, std::pair{EIO, kDeviceIoError}, std::pair{ENODEV, kDeviceGone}}) {
    for (const unsigned long call :
         {static_cast<unsigned long>(VIDIOC_STREAMON), static_cast<unsigned long>(VIDIOC_REQBUFS)}) {
      kernel.Fail(call, error);
      EXPECT_EQ(Run(), expected) << error;
      kernel.FailNothing();
    }
  }
  kernel.Fail(VIDIOC_REQBUFS, ENOMEM);
  EXPECT_LT(Run(), 0);
  kernel.Fail(kMapCall, ENOMEM);
  EXPECT_LT(Run(), 0);
  kernel.FailNothing();
  EXPECT_EQ(Run(), S_OK) << "without the failure";
  Stream({1});
}

}  // namespace
}  // namespace linux_support
