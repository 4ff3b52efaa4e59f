// How a graph comes to a device: connecting its pins, and one device for several users.
#include <utility>

#include "support/linux/CaptureGraphTest.h"

namespace {

using ::testing::SizeIs;

using Connection = GraphTest;
using SharedDevice = GraphTest;

// --- Connecting ---

TEST_F(Connection, OfTypesThatCannotBeConvertedIsRefused) {
  device = &AddLaptopCamera();
  GraphSettings settings;
  settings.grabberSubtype = MEDIASUBTYPE_ARGB32;
  EXPECT_EQ(graph.Build(&callback, settings), VFW_E_CANNOT_CONNECT);
  for (const GUID& subtype : {MEDIASUBTYPE_NV12, MEDIASUBTYPE_YUY2}) {
    graph.Release();
    EXPECT_EQ(graph.Build(&callback, MjpgTo(subtype)), VFW_E_CANNOT_CONNECT);
  }
}

TEST_F(Connection, WithoutASubtypeTakesWhatThereIs) {
  GraphSettings settings;
  settings.grabberSubtype = {};
  BuildAndRun(settings);
  Stream({1});
}

TEST_F(Connection, IsMadeOnce) {
  BuildAndRun();
  EXPECT_LT(graph.Connect(), 0);
  Stream({1});
}

TEST_F(Connection, TheWrongWayRoundIsRefused) {
  Build();
  EXPECT_LT(graph.builder->Connect(graph.grabberPin.Get(), graph.cameraPin.Get()), 0);
}

TEST_F(Connection, NeedsBothFiltersInTheGraph) {
  Build();
  CaptureGraph stranger;
  ASSERT_EQ(stranger.Create(), S_OK);
  ASSERT_EQ(stranger.AddGrabber(&callback, {}), S_OK);
  const ComPtr<IPin> pin = FindPin(*stranger.grabberFilter.Get(), PINDIR_INPUT);
  EXPECT_LT(graph.builder->Connect(graph.cameraPin.Get(), pin.Get()), 0);
}

TEST_F(Connection, EndsWhatCanBeSet) {
  Build();
  EXPECT_NE(ChangeFormat(*graph.cameraPin.Get(), MEDIASUBTYPE_YUY2, 32, 24, 333333), S_OK)
      << "the format is a matter of the unconnected pin";
  ASSERT_EQ(Run(), S_OK);
  Stream({1});
}

// --- One device, several users ---

TEST_F(SharedDevice, SecondGraphCannotRun) {
  BuildAndRun();
  Stream({1});
  FrameCollector otherCallback;
  CaptureGraph other;
  HRESULT result = other.Build(&otherCallback);
  if (result == S_OK) {
    result = other.control->Run();
  }
  EXPECT_EQ(result, kInUse);
  Stream({2});
  other.Release();
  Stream({3});
}

TEST_F(SharedDevice, GraphsBuiltSideBySideRunOneAfterTheOther) {
  Build();
  FrameCollector otherCallback;
  CaptureGraph other;
  ASSERT_EQ(other.Build(&otherCallback), S_OK);
  ASSERT_EQ(Run(), S_OK);
  EXPECT_EQ(other.control->Run(), kInUse);
  Stream({1});
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(other.control->Run(), S_OK);
  ASSERT_TRUE(device->Deliver(Picture(2)));
  EXPECT_TRUE(otherCallback.WaitForFrames(1));
  EXPECT_EQ(other.control->Stop(), S_OK);
  other.Release();
}

TEST_F(SharedDevice, CanBeAskedForItsFormatsWhileItStreams) {
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

TEST_F(SharedDevice, ThatCannotStartSaysWhy) {
  Build();
  for (const auto& [error, expected] :
       {std::pair{EBUSY, kInUse}, std::pair{EIO, kIoError}, std::pair{ENODEV, kGone}}) {
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
  EXPECT_EQ(Run(), S_OK) << "the obstacle has gone";
  Stream({1});
}

}  // namespace
