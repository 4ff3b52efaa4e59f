// Fixture with one camera, its filter and its pin.
#pragma once

#include <array>

#include "support/linux/LinuxTest.h"

namespace linux_support {

class V4l2FormatTest : public LinuxTest {
 protected:
  FakeV4l2Device& AddCamera(VideoDeviceSettings settings = {});
  FakeV4l2Device& AddCamera(std::vector<FormatOffer> formats);
  void TearDown() override;

  // Descriptions of the media types that the pin offers.
  std::vector<std::string> Offered() const;
  // Changes the current format.
  HRESULT Change(const GUID& subtype, LONG width, LONG height, LONGLONG interval) const;
  // Sets a new media type, which does not require a current format.
  HRESULT SetFormat(const GUID& subtype, LONG width, LONG height, LONGLONG interval) const;
  // The results of EnumMediaTypes, GetFormat and SetFormat: the calls that access the device.
  std::array<HRESULT, 3> Results() const;

  ComPtr<IBaseFilter> filter;
  ComPtr<IPin> pin;
};

VIDEOINFOHEADER VideoHeader(LONG width, LONG height, LONGLONG interval);
// The media type points to the caller's header.
AM_MEDIA_TYPE VideoType(const GUID& subtype, VIDEOINFOHEADER& video);

}  // namespace linux_support
