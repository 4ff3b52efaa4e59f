// Binary contracts: slots of the encoder's method table, identifiers and constants.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "DirectShow.h"
#include "MultiMediaEncoder.h"
#include "SetupApi.h"

namespace {

// Returns the slot of a virtual method from a pointer to it (Itanium C++ ABI).
template <typename Method>
std::uint64_t SlotOf(Method method) {
  std::uint64_t pointer = 0;
  std::memcpy(&pointer, &method, sizeof(pointer));
  return (pointer - 1) / sizeof(void*);
}

TEST(EncoderInterface, InitializeIsSlotZeroAndEncodeIsSlotFour) {
  EXPECT_EQ(SlotOf(&VideoEncoder::Initialize), 0U);
  EXPECT_EQ(SlotOf(&VideoEncoder::Encode), 4U);
}

std::string Text(const GUID& id) {
  char text[64];
  (void)std::snprintf(text, sizeof(text), "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                      static_cast<unsigned>(id.Data1), id.Data2, id.Data3, id.Data4[0], id.Data4[1],
                      id.Data4[2], id.Data4[3], id.Data4[4], id.Data4[5], id.Data4[6], id.Data4[7]);
  return text;
}

TEST(Identifiers, EqualThoseOfTheSystem) {
  EXPECT_EQ(Text(IID_IUnknown), "{00000000-0000-0000-C000-000000000046}");
  EXPECT_EQ(Text(CLSID_SystemDeviceEnum), "{62BE5D10-60EB-11D0-BD3B-00A0C911CE86}");
  EXPECT_EQ(Text(IID_ICreateDevEnum), "{29840822-5B84-11D0-BD3B-00A0C911CE86}");
  EXPECT_EQ(Text(CLSID_VideoInputDeviceCategory), "{860BB310-5D01-11D0-BD3B-00A0C911CE86}");
  EXPECT_EQ(Text(IID_IBaseFilter), "{56A86895-0AD4-11CE-B03A-0020AF0BA770}");
  EXPECT_EQ(Text(GUID_DEVINTERFACE_USB_DEVICE), "{A5DCBF10-6530-11D2-901F-00C04FB951ED}");
  EXPECT_EQ(Text(CLSID_FilterGraph), "{E436EBB3-524F-11CE-9F53-0020AF0BA770}");
  EXPECT_EQ(Text(IID_IGraphBuilder), "{56A868A9-0AD4-11CE-B03A-0020AF0BA770}");
  EXPECT_EQ(Text(IID_IMediaControl), "{56A868B1-0AD4-11CE-B03A-0020AF0BA770}");
  EXPECT_EQ(Text(IID_IMediaEvent), "{56A868B6-0AD4-11CE-B03A-0020AF0BA770}");
  EXPECT_EQ(Text(CLSID_SampleGrabber), "{C1F400A0-3F08-11D3-9F0B-006008039E37}");
  EXPECT_EQ(Text(IID_IAMStreamConfig), "{C6E13340-30AC-11D0-A18C-00A0C9118956}");
  EXPECT_EQ(Text(IID_ISampleGrabber), "{6B652FFF-11FE-4FCE-92AD-0266B5D7C78F}");
  EXPECT_EQ(Text(IID_ISampleGrabberCB), "{0579154A-2B53-4994-B0D0-E773148EFF85}");
  EXPECT_EQ(Text(MEDIATYPE_Video), "{73646976-0000-0010-8000-00AA00389B71}");
  EXPECT_EQ(Text(MEDIASUBTYPE_YUY2), "{32595559-0000-0010-8000-00AA00389B71}");
  EXPECT_EQ(Text(MEDIASUBTYPE_MJPG), "{47504A4D-0000-0010-8000-00AA00389B71}");
  EXPECT_EQ(Text(MEDIASUBTYPE_ARGB32), "{773C9AC0-3274-11D0-B724-00AA006C1A01}");
  EXPECT_EQ(Text(FORMAT_VideoInfo), "{05589F80-C356-11CE-BF01-00AA0055595A}");
  EXPECT_EQ(Text(FORMAT_VideoInfo2), "{F72A76A0-EB0A-11D0-ACE4-0000C0CC16BA}");
}

TEST(Constants, EqualThoseOfTheSystem) {
  EXPECT_EQ(DIGCF_PRESENT | DIGCF_PROFILE | DIGCF_DEVICEINTERFACE, 0x1AU);
  EXPECT_EQ(DN_REMOVABLE, 0x4000U);
  EXPECT_EQ(CLSCTX_INPROC_SERVER, 1U);
  EXPECT_EQ(CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER, 3U);
  EXPECT_EQ(sizeof(VIDEOINFOHEADER), 88U);
}

}  // namespace
