// Output format of the camera and settings of the sample grabber. OpenFailureTest.cpp tests their failures.
#include "support/CameraOperatorTest.h"

namespace {

using scripted::BuiltInCamera;
using scripted::Fails;
using scripted::kBuiltInId;
using scripted::MediaType;
using scripted::Yuy2;
using support::CameraOperatorTest;
using support::ErrorLine;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

// Size of a VIDEOINFOHEADER up to the end of the height, the last field that is set.
constexpr ULONG kSizeEnd = 60;

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

  // Returns the subtype that the grabber requests.
  std::string GrabberSubType(std::uint32_t width, std::uint32_t height) {
    ComPtr<IBaseFilter> grabber;
    EXPECT_EQ(CoCreateInstance(CLSID_SampleGrabber, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                               grabber.PutVoid()),
              S_OK);
    platform.ClearJournal();
    EXPECT_TRUE(camera->ConfigSampleGrabber(grabber.Get(), width, height));
    for (const char* const subType : {"MEDIASUBTYPE_YUY2", "MEDIASUBTYPE_ARGB32"}) {
      for (const std::string& call : platform.Calls()) {
        if (call == "ISampleGrabber::SetMediaType(MEDIATYPE_Video, " + std::string(subType) +
                        ", FORMAT_VideoInfo, cbFormat 0)") {
          return subType;
        }
      }
    }
    return "none";
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

TEST_F(CameraFormat, LogsTheFirstFieldOfTheSubtype) {
  ExpectLeft("current media type", 2);
  const ComPtr<IPin> pin = OutputPin(Yuy2(640, 480, 30));
  EXPECT_TRUE(camera->SetCameraFormat(pin.Get(), 640, 480, 30, MEDIASUBTYPE_YUY2));
  EXPECT_TRUE(camera->SetCameraFormat(pin.Get(), 1280, 720, 60, MEDIASUBTYPE_MJPG));
  EXPECT_THAT(LogLines(),
              ElementsAre(ErrorLine("[CameraOperator]Set camera parameter, (640,480,30,844715353)"
                                    "(CameraOperator::SetCameraFormat)"),
                          ErrorLine("[CameraOperator]Set camera parameter, (1280,720,60,1196444237)"
                                    "(CameraOperator::SetCameraFormat)")));
}

TEST_F(CameraFormat, OtherFormatTypeIsKeptAndSucceeds) {
  ExpectLeft("current media type");
  MediaType other = Yuy2(640, 480, 30);
  other.formatType = FORMAT_VideoInfo2;
  const ComPtr<IPin> pin = OutputPin(other);
  EXPECT_TRUE(camera->SetCameraFormat(pin.Get(), 640, 480, 30, MEDIASUBTYPE_YUY2));
  EXPECT_THAT(platform.Calls(), Not(Contains(StartsWith("IAMStreamConfig::SetFormat"))));
  EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(CameraFormat, ShortFormatBlockIsKeptAndSucceeds) {
  ExpectLeft("current media type", 3);
  MediaType missing = Yuy2(640, 480, 30);
  missing.hasFormat = false;
  MediaType tiny = Yuy2(640, 480, 30);
  tiny.formatSize = 1;
  MediaType cut = Yuy2(640, 480, 30);
  cut.formatSize = kSizeEnd - 1;
  for (const MediaType& type : {missing, tiny, cut}) {
    const ComPtr<IPin> pin = OutputPin(type);
    EXPECT_TRUE(camera->SetCameraFormat(pin.Get(), 640, 480, 30, MEDIASUBTYPE_YUY2));
    EXPECT_THAT(platform.Calls(), Not(Contains(StartsWith("IAMStreamConfig::SetFormat"))));
    EXPECT_THAT(LogLines(), IsEmpty());
  }
}

TEST_F(CameraFormat, FormatBlockIsNotWrittenBeyondItsEnd) {
  ExpectLeft("current media type", 2);
  for (const ULONG size : {kSizeEnd, static_cast<ULONG>(sizeof(VIDEOINFOHEADER)) - 1}) {
    MediaType cut = Yuy2(1280, 720, 10);
    cut.formatSize = size;
    const ComPtr<IPin> pin = OutputPin(cut);
    EXPECT_TRUE(camera->SetCameraFormat(pin.Get(), 320, 240, 15, MEDIASUBTYPE_YUY2));
    EXPECT_THAT(platform.Calls(),
                Contains("IAMStreamConfig::SetFormat(built-in.capture, MEDIASUBTYPE_YUY2, 320x240, 666666)"));
    EXPECT_THAT(LogLines(),
                ElementsAre(ErrorLine("[CameraOperator]Set camera parameter, "
                                      "(320,240,15,844715353)(CameraOperator::SetCameraFormat)")));
    platform.ClearJournal();
  }
}

TEST_F(CameraFormat, FormatBlockOfUnknownLengthIsSetAndNotFreed) {
  ExpectLeft("current media type");
  // cbFormat is 0, so that the block is not freed.
  ExpectLeft("current media type format block");
  MediaType unknown = Yuy2(1280, 720, 10);
  unknown.claimedSize = 0;
  const ComPtr<IPin> pin = OutputPin(unknown);
  EXPECT_TRUE(camera->SetCameraFormat(pin.Get(), 320, 240, 15, MEDIASUBTYPE_YUY2));
  EXPECT_THAT(platform.Calls(),
              Contains("IAMStreamConfig::SetFormat(built-in.capture, MEDIASUBTYPE_YUY2, 320x240, 666666)"));
}

TEST_F(CameraFormat, ZeroRateUsesTheDefaultInterval) {
  ExpectLeft("current media type");
  const ComPtr<IPin> pin = OutputPin(Yuy2(640, 480, 30));
  EXPECT_TRUE(camera->SetCameraFormat(pin.Get(), 640, 480, 0, MEDIASUBTYPE_YUY2));
  EXPECT_THAT(platform.Calls(),
              Contains("IAMStreamConfig::SetFormat(built-in.capture, MEDIASUBTYPE_YUY2, 640x480, 33)"));
  EXPECT_THAT(LogLines(),
              Contains(ErrorLine(445, "[CameraOperator]fps is 0.(CameraOperator::FpsToAvgTimePerFrame)")));
}

TEST_F(CameraFormat, InterfaceInTheCurrentFormatIsReleased) {
  ExpectLeft("current media type");
  MediaType type = Yuy2(640, 480, 30);
  type.hasUnknown = true;
  const ComPtr<IPin> pin = OutputPin(type);
  EXPECT_TRUE(camera->SetCameraFormat(pin.Get(), 640, 480, 30, MEDIASUBTYPE_YUY2));
  EXPECT_THAT(platform.Alive(), Not(Contains("current media type pUnk: 1")));
}

TEST_F(CameraFormat, RefusedFormatLeaksOnlyTheStructure) {
  ExpectLeft("current media type");
  const ComPtr<IPin> pin = OutputPin(Yuy2(640, 480, 30));
  platform.Answers("IAMStreamConfig::SetFormat", Fails());
  EXPECT_FALSE(camera->SetCameraFormat(pin.Get(), 640, 480, 30, MEDIASUBTYPE_YUY2));
  EXPECT_THAT(platform.Alive(), Not(Contains("current media type format block")));
}

TEST_F(CameraFormat, FormatReturnedWithAFailureIsNotUsedOrFreed) {
  MediaType type = Yuy2(640, 480, 30);
  type.hasUnknown = true;
  const ComPtr<IPin> pin = OutputPin(type);
  for (const scripted::Answer answer : {scripted::SFalse(), scripted::FailsWithOutput()}) {
    platform.ClearJournal();
    platform.Answers("IAMStreamConfig::GetFormat", answer);
    EXPECT_FALSE(camera->SetCameraFormat(pin.Get(), 640, 480, 30, MEDIASUBTYPE_YUY2));
    EXPECT_THAT(LogLines(),
                ElementsAre(ErrorLine("[CameraOperator]fail to get camera parameter, error: " +
                                      std::to_string(answer.hr) + "(CameraOperator::SetCameraFormat)")));
    EXPECT_EQ(platform.CallCount("CoTaskMemFree"), 0U);
  }
}

TEST_F(CameraFormat, GrabberRequestsArgb32ForMjpgSizes) {
  CameraCapabilityMgr& table = CameraCapabilityMgr::GetInstance();
  EXPECT_EQ(GrabberSubType(640, 480), "MEDIASUBTYPE_YUY2") << "no entry";
  table.Add(640, 480, 30, MEDIASUBTYPE_MJPG);
  EXPECT_EQ(GrabberSubType(640, 480), "MEDIASUBTYPE_ARGB32");
  EXPECT_EQ(GrabberSubType(640, 481), "MEDIASUBTYPE_YUY2") << "another size";
  table.Add(320, 240, 30, MEDIASUBTYPE_NV12);
  EXPECT_EQ(GrabberSubType(320, 240), "MEDIASUBTYPE_YUY2");
}

TEST_F(CameraFormat, GrabberFormatFollowsTheBestTableEntry) {
  CameraCapabilityMgr& table = CameraCapabilityMgr::GetInstance();
  table.Add(640, 480, 30, MEDIASUBTYPE_MJPG);
  table.Add(640, 480, 30, MEDIASUBTYPE_YUY2);
  EXPECT_EQ(GrabberSubType(640, 480), "MEDIASUBTYPE_YUY2");
  table.Add(640, 480, 60, MEDIASUBTYPE_MJPG);
  EXPECT_EQ(GrabberSubType(640, 480), "MEDIASUBTYPE_ARGB32");
}

TEST_F(CameraFormat, NullGrabberIsLogged) {
  EXPECT_FALSE(camera->ConfigSampleGrabber(nullptr, 640, 480));
  EXPECT_THAT(LogLines(), ElementsAre(ErrorLine("[CameraOperator]sampleGrabberFilter  is nullptr"
                                                "(CameraOperator::ConfigSampleGrabber)")));
}

}  // namespace
