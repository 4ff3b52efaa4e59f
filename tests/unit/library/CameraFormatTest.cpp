// Output format of the camera and of the sample grabber. The fault injection tests their failures,
// MalformedInputFromPlatformTest.cpp unusual format blocks.
#include "support/CameraOperatorTest.h"

namespace {

using scripted::BuiltInCamera;
using scripted::kBuiltInId;
using scripted::MediaType;
using scripted::Yuy2;
using support::CameraOperatorTest;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class CameraFormat : public CameraOperatorTest {
 protected:
  // Returns the output pin of a camera with the given current format.
  ComPtr<IPin> OutputPin(const MediaType& current) {
    platform.SetPc({{{0, kBuiltInId}}, {BuiltInCamera({current})}});
    EXPECT_EQ(camera->CameraCount(), 1U);
    ComPtr<IBaseFilter> filter;
    EXPECT_TRUE(camera->BindDeviceFilter(0, filter.Put()));
    ComPtr<IPin> pin;
    EXPECT_TRUE(camera->QueryFilterPin(filter.Get(), PINDIR_OUTPUT, pin.Put()));
    platform.ClearJournal();
    return pin;
  }

  void ExpectGrabberToRequest(const std::string& subType, std::uint32_t width, std::uint32_t height) {
    ComPtr<IBaseFilter> grabber;
    EXPECT_EQ(CoCreateInstance(CLSID_SampleGrabber, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                               grabber.PutVoid()),
              S_OK);
    platform.ClearJournal();
    EXPECT_TRUE(camera->ConfigSampleGrabber(grabber.Get(), width, height));
    EXPECT_THAT(platform.Calls(), Contains("ISampleGrabber::SetMediaType(MEDIATYPE_Video, " + subType +
                                           ", FORMAT_VideoInfo, cbFormat 0)"));
  }
};

TEST_F(CameraFormat, SetsOnlySizeIntervalAndSubtype) {
  ExpectLeft("current media type");
  const ComPtr<IPin> pin = OutputPin(Yuy2(1280, 720, 10));
  EXPECT_TRUE(camera->SetCameraFormat(pin.Get(), 320, 240, 15, MEDIASUBTYPE_MJPG));
  EXPECT_THAT(platform.Calls(),
              ElementsAre("IUnknown::QueryInterface(built-in.capture, IID_IAMStreamConfig)",
                          "IAMStreamConfig::GetFormat(built-in.capture)",
                          "IAMStreamConfig::SetFormat(built-in.capture, MEDIASUBTYPE_MJPG, 320x240, 666666)",
                          "CoTaskMemFree()"));
}

TEST_F(CameraFormat, OtherFormatTypeIsKeptAndSucceeds) {
  ExpectLeft("current media type");
  MediaType other = Yuy2(640, 480, 30);
  other.formatType = FORMAT_VideoInfo2;
  const ComPtr<IPin> pin = OutputPin(other);
  EXPECT_TRUE(camera->SetCameraFormat(pin.Get(), 640, 480, 30, MEDIASUBTYPE_YUY2));
  EXPECT_THAT(platform.Calls(), Not(Contains(StartsWith("IAMStreamConfig::SetFormat"))));
  EXPECT_THAT(platform.Logs(), IsEmpty());
}

TEST_F(CameraFormat, InterfaceInTheCurrentFormatIsReleased) {
  ExpectLeft("current media type");
  MediaType type = Yuy2(640, 480, 30);
  type.hasUnknown = true;
  const ComPtr<IPin> pin = OutputPin(type);
  EXPECT_TRUE(camera->SetCameraFormat(pin.Get(), 640, 480, 30, MEDIASUBTYPE_YUY2));
  EXPECT_THAT(platform.Alive(), Not(Contains("current media type pUnk: 1")));
}

TEST_F(CameraFormat, GrabberRequestsArgb32IfTheBestTableEntryIsMjpg) {
  CameraCapabilityMgr& table = CameraCapabilityMgr::GetInstance();
  ExpectGrabberToRequest("MEDIASUBTYPE_YUY2", 640, 480);
  table.Add(640, 480, 30, MEDIASUBTYPE_MJPG);
  ExpectGrabberToRequest("MEDIASUBTYPE_ARGB32", 640, 480);
  ExpectGrabberToRequest("MEDIASUBTYPE_YUY2", 640, 481);
  // Uncompressed at the same rate, MJPG at a higher one.
  table.Add(640, 480, 30, MEDIASUBTYPE_NV12);
  ExpectGrabberToRequest("MEDIASUBTYPE_YUY2", 640, 480);
  table.Add(640, 480, 60, MEDIASUBTYPE_MJPG);
  ExpectGrabberToRequest("MEDIASUBTYPE_ARGB32", 640, 480);
}

}  // namespace
