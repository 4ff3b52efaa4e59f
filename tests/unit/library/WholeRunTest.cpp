// A complete session from query to close: all platform calls and callbacks in order, and where log lines lie
// among them. LogMessagesTest.cpp tests their texts.
#include "support/CameraHandlerTest.h"

namespace {

using support::CameraHandlerTest;
using support::WaitFor;

using ::testing::ElementsAre;

class WholeRun : public CameraHandlerTest {
 protected:
  // The journal with "log" for each log line.
  std::vector<std::string> Journal() const {
    std::vector<std::string> journal = platform.Journal();
    for (std::string& entry : journal) {
      entry = entry.starts_with("log: ") ? "log" : entry;
    }
    return journal;
  }
};

TEST_F(WholeRun, MakesCallsInDocumentedOrder) {
  ASSERT_EQ(Query(), 0);
  EXPECT_THAT(
      Journal(),
      ElementsAre(
          "CoInitialize()",  //
          "CoCreateInstance(CLSID_SystemDeviceEnum, 1, IID_ICreateDevEnum)",
          "ICreateDevEnum::CreateClassEnumerator(CLSID_VideoInputDeviceCategory, 0)", "IEnumMoniker::Reset()",
          "IEnumMoniker::Next()", "CoGetMalloc(1)", "CreateBindCtx(0)", "IMoniker::GetDisplayName(plug-in)",
          "IMalloc::Free()",  //
          "IEnumMoniker::Next()", "CoGetMalloc(1)", "CreateBindCtx(0)", "IMoniker::GetDisplayName(built-in)",
          "IMalloc::Free()",  //
          "IEnumMoniker::Next()",
          // Find the fixed USB device.
          "SetupDiGetClassDevsW(GUID_DEVINTERFACE_USB_DEVICE, 26)",
          "SetupDiEnumDeviceInterfaces(GUID_DEVINTERFACE_USB_DEVICE, 0)",
          "SetupDiGetDeviceInterfaceDetailW(1024)", "SetupDiEnumDeviceInfo(0)", "CM_Get_DevNode_Status(0, 0)",
          "SetupDiEnumDeviceInterfaces(GUID_DEVINTERFACE_USB_DEVICE, 1)",
          "SetupDiGetDeviceInterfaceDetailW(1024)", "SetupDiEnumDeviceInfo(1)", "CM_Get_DevNode_Status(1, 0)",
          "CM_Get_Child(1, 0)", "CM_Get_Device_IDA(1, 256, 0)",
          "SetupDiEnumDeviceInterfaces(GUID_DEVINTERFACE_USB_DEVICE, 2, past the end)",
          "SetupDiDestroyDeviceInfoList()",
          // Read the media types.
          "CoCreateInstance(CLSID_SystemDeviceEnum, 1, IID_ICreateDevEnum)",
          "ICreateDevEnum::CreateClassEnumerator(CLSID_VideoInputDeviceCategory, 0)", "IEnumMoniker::Reset()",
          "IEnumMoniker::Next()", "CoGetMalloc(1)", "CreateBindCtx(0)", "IMoniker::GetDisplayName(plug-in)",
          "IMalloc::Free()",  //
          "IEnumMoniker::Next()", "CoGetMalloc(1)", "CreateBindCtx(0)", "IMoniker::GetDisplayName(built-in)",
          "IMalloc::Free()", "IMoniker::BindToObject(built-in, IID_IBaseFilter)",  //
          "IBaseFilter::EnumPins(built-in)", "IEnumPins::Next(built-in pin enumerator)",
          "IEnumPins::Next(built-in pin enumerator)",  //
          "IPin::QueryPinInfo(built-in.capture)", "IPin::EnumMediaTypes(built-in.capture)",
          "IEnumMediaTypes::Next(built-in.capture media type enumerator)", "log", "CoTaskMemFree()",
          "CoTaskMemFree()", "IEnumMediaTypes::Next(built-in.capture media type enumerator)", "log",
          "CoTaskMemFree()", "CoTaskMemFree()",
          "IEnumMediaTypes::Next(built-in.capture media type enumerator)",
          // Allocate the record, id, ability, rates and sizes.
          "AllocateHostBlock(48)", "AllocateHostBlock(64)", "AllocateHostBlock(32)", "AllocateHostBlock(8)",
          "AllocateHostBlock(16)"));
  ReleaseCapabilities();

  platform.ClearJournal();
  ExpectFormatLeft();
  ASSERT_EQ(Open(), 0);
  EXPECT_THAT(
      Journal(),
      ElementsAre(
          "log", "VideoEncoder::CreateDefaultEncoder()",
          "VideoEncoder::Initialize(640x480, 30 fps, colour space 3)", "VideoFrame::AllocBuffer(640, 480, 3)",
          "VideoFrame::AllocBuffer(640, 480, 3)", "VideoFrame::AllocBuffer(640, 480, 3)",
          "VideoFrame::AllocBuffer(640, 480, 3)", "VideoFrame::AllocBuffer(640, 480, 3)", "log",
          "CoCreateInstance(CLSID_FilterGraph, 3, IID_IGraphBuilder)",
          "IUnknown::QueryInterface(graph, IID_IMediaControl)", "PinModule()",
          "IUnknown::QueryInterface(graph, IID_IMediaEvent)",
          "CoCreateInstance(CLSID_SystemDeviceEnum, 1, IID_ICreateDevEnum)",
          "ICreateDevEnum::CreateClassEnumerator(CLSID_VideoInputDeviceCategory, 0)", "IEnumMoniker::Reset()",
          "IEnumMoniker::Next()", "CoGetMalloc(1)", "CreateBindCtx(0)", "IMoniker::GetDisplayName(plug-in)",
          "IMalloc::Free()", "IEnumMoniker::Next()", "CoGetMalloc(1)", "CreateBindCtx(0)",
          "IMoniker::GetDisplayName(built-in)", "IMalloc::Free()",
          "IMoniker::BindToObject(built-in, IID_IBaseFilter)", "IFilterGraph::AddFilter(built-in, null)",
          "CoCreateInstance(CLSID_SampleGrabber, 1, IID_IBaseFilter)",
          "IUnknown::QueryInterface(grabber, IID_ISampleGrabber)",
          "ISampleGrabber::SetMediaType(MEDIATYPE_Video, MEDIASUBTYPE_YUY2, FORMAT_VideoInfo, cbFormat 0)",
          "ISampleGrabber::SetCallback(1)", "ISampleGrabber::SetBufferSamples(1)",
          "ISampleGrabber::SetOneShot(1)", "IFilterGraph::AddFilter(grabber, Grabber)",
          "IBaseFilter::EnumPins(built-in)", "IEnumPins::Next(built-in pin enumerator)",
          "IPin::QueryDirection(built-in.capture)",
          "IUnknown::QueryInterface(built-in.capture, IID_IAMStreamConfig)",
          "IAMStreamConfig::GetFormat(built-in.capture)", "log",
          "IAMStreamConfig::SetFormat(built-in.capture, MEDIASUBTYPE_YUY2, 640x480, 333333)",
          "CoTaskMemFree()", "IBaseFilter::EnumPins(grabber)", "IEnumPins::Next(grabber pin enumerator)",
          "IPin::QueryDirection(grabber.in)", "IGraphBuilder::Connect(built-in.capture, grabber.in)", "log",
          "status callback \"0\" 1 4", "IMediaControl::Run()", "IMediaEvent::WaitForCompletion(-1)", "log"));

  platform.ClearJournal();
  DeliverAndReceive(1);
  ASSERT_TRUE(WaitFor([&] { return Journal().size() == 4; }));
  EXPECT_THAT(Journal(), ElementsAre("AVEncodePacket::AVEncodePacket()", "VideoEncoder::Encode(1)",
                                     "data callback \"0\"", "AVEncodePacket::~AVEncodePacket()"));

  platform.ClearJournal();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_THAT(Journal(), ElementsAre("log", "IMediaControl::Stop()", "IMediaEvent::WaitForCompletion(-1)",
                                     "status callback \"0\" 1 3", "VideoFrame::ReleaseBuffer()",
                                     "VideoFrame::ReleaseBuffer()", "VideoFrame::ReleaseBuffer()",
                                     "VideoFrame::ReleaseBuffer()", "VideoFrame::ReleaseBuffer()",
                                     "VideoEncoder::ReleaseEncoder()", "UnpinModule(before returning)"));
}

}  // namespace
