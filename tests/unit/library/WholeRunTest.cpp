// A complete session from query to close: all platform calls, log lines and callbacks in order.
#include "support/CameraHandlerTest.h"

namespace {

using support::CameraHandlerTest;
using support::WaitFor;

using WholeRun = CameraHandlerTest;
using ::testing::ElementsAre;

TEST_F(WholeRun, MakesCallsInDocumentedOrder) {
  ASSERT_EQ(Query(), 0);
  EXPECT_THAT(
      platform.Journal(),
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
          "IEnumMediaTypes::Next(built-in.capture media type enumerator)",
          "log: [CameraOperator]ParseMediaType success, width: 1280, height:720,fps:30,subType:1196444237"
          "(CameraOperator::ParseMediaType)",
          "CoTaskMemFree()", "CoTaskMemFree()",
          "IEnumMediaTypes::Next(built-in.capture media type enumerator)",
          "log: [CameraOperator]ParseMediaType success, width: 640, height:480,fps:30,subType:844715353"
          "(CameraOperator::ParseMediaType)",
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
      platform.Journal(),
      ElementsAre(
          "log: [CameraOperator]Start open camera(CameraOperator::OpenCameraInner)",
          "VideoEncoder::CreateDefaultEncoder()", "VideoEncoder::Initialize(640x480, 30 fps, colour space 3)",
          "VideoFrame::AllocBuffer(640, 480, 3)", "VideoFrame::AllocBuffer(640, 480, 3)",
          "VideoFrame::AllocBuffer(640, 480, 3)", "VideoFrame::AllocBuffer(640, 480, 3)",
          "VideoFrame::AllocBuffer(640, 480, 3)",
          "log: [CameraOperator]start OpenCamera, width:640, height:480, fps:30(CameraOperator::OpenCamera)",
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
          "IAMStreamConfig::GetFormat(built-in.capture)",
          "log: [CameraOperator]Set camera parameter, "
          "(640,480,30,844715353)(CameraOperator::SetCameraFormat)",
          "IAMStreamConfig::SetFormat(built-in.capture, MEDIASUBTYPE_YUY2, 640x480, 333333)",
          "CoTaskMemFree()", "IBaseFilter::EnumPins(grabber)", "IEnumPins::Next(grabber pin enumerator)",
          "IPin::QueryDirection(grabber.in)", "IGraphBuilder::Connect(built-in.capture, grabber.in)",
          "log: [CameraOperator]OpenCamera success.(CameraOperator::OpenCamera)", "status callback \"0\" 1 4",
          "IMediaControl::Run()", "IMediaEvent::WaitForCompletion(-1)",
          "log: [CameraOperator]open camera success(CameraOperator::OpenCameraInner)"));

  platform.ClearJournal();
  DeliverAndReceive(1);
  ASSERT_TRUE(WaitFor([&] { return platform.Journal().size() == 4; }));
  EXPECT_THAT(platform.Journal(), ElementsAre("AVEncodePacket::AVEncodePacket()", "VideoEncoder::Encode(1)",
                                              "data callback \"0\"", "AVEncodePacket::~AVEncodePacket()"));

  platform.ClearJournal();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_THAT(
      platform.Journal(),
      ElementsAre("log: [CameraOperator]CloseCameraInner.(CameraOperator::CloseCameraInner)",
                  "IMediaControl::Stop()", "IMediaEvent::WaitForCompletion(-1)", "status callback \"0\" 1 3",
                  "VideoFrame::ReleaseBuffer()", "VideoFrame::ReleaseBuffer()", "VideoFrame::ReleaseBuffer()",
                  "VideoFrame::ReleaseBuffer()", "VideoFrame::ReleaseBuffer()",
                  "VideoEncoder::ReleaseEncoder()", "UnpinModule(before returning)"));
}

}  // namespace
