// Fixture with one camera, its filter and its pin.
#pragma once

#include <array>

#include "support/linux/LinuxTest.h"

class FormatTest : public LinuxTest {
 protected:
  FakeV4l2Device& AddCamera(VideoDeviceSettings settings = {});
  FakeV4l2Device& AddCamera(std::vector<FormatOffer> formats);
  void TearDown() override;

  // What the pin offers, described.
  std::vector<std::string> Offered() const;
  // Changes these parts of the current format.
  HRESULT Change(const GUID& subtype, LONG width, LONG height, LONGLONG interval) const;
  // Sets a format made by hand, for which there need not be a current one.
  HRESULT SetWhole(const GUID& subtype, LONG width, LONG height, LONGLONG interval) const;
  // The results of EnumMediaTypes, GetFormat and SetFormat, which are all that meet the device.
  std::array<HRESULT, 3> Results() const;

  ComPtr<IBaseFilter> filter;
  ComPtr<IPin> pin;
};

// A header with these parts set.
VIDEOINFOHEADER VideoHeader(LONG width, LONG height, LONGLONG interval);
// A media type around it, which stays the caller's.
AM_MEDIA_TYPE VideoType(const GUID& subtype, VIDEOINFOHEADER& video);
