#include "support/linux/V4l2FormatTest.h"

namespace linux_support {

FakeV4l2Device& V4l2FormatTest::AddCamera(std::vector<FormatOffer> formats) {
  VideoDeviceSettings settings;
  settings.formats = std::move(formats);
  return AddCamera(std::move(settings));
}

FakeV4l2Device& V4l2FormatTest::AddCamera(VideoDeviceSettings settings) {
  FakeV4l2Device& device = AddLaptopCamera(std::move(settings));
  filter = FirstCamera();
  pin = FindPin(*filter.Get(), PINDIR_OUTPUT);
  return device;
}

void V4l2FormatTest::TearDown() {
  pin.Reset();
  filter.Reset();
  LinuxTest::TearDown();
}

std::vector<std::string> V4l2FormatTest::Offered() const {
  std::vector<MediaType> types;
  EXPECT_EQ(ListMediaTypes(*pin.Get(), types), S_OK);
  std::vector<std::string> descriptions;
  descriptions.reserve(types.size());
  for (const MediaType& type : types) {
    descriptions.push_back(Describe(type));
  }
  return descriptions;
}

HRESULT V4l2FormatTest::Change(const GUID& subtype, LONG width, LONG height, LONGLONG interval) const {
  return ChangeFormat(*pin.Get(), subtype, width, height, interval);
}

HRESULT V4l2FormatTest::SetFormat(const GUID& subtype, LONG width, LONG height, LONGLONG interval) const {
  VIDEOINFOHEADER video = VideoHeader(width, height, interval);
  AM_MEDIA_TYPE type = VideoType(subtype, video);
  return StreamConfig(*pin.Get())->SetFormat(&type);
}

std::array<HRESULT, 3> V4l2FormatTest::Results() const {
  std::vector<MediaType> types;
  MediaType current;
  const HRESULT listed = ListMediaTypes(*pin.Get(), types);
  const HRESULT got = CurrentFormat(*pin.Get(), current);
  return {listed, got, SetFormat(MEDIASUBTYPE_YUY2, 64, 48, 333333)};
}

VIDEOINFOHEADER VideoHeader(LONG width, LONG height, LONGLONG interval) {
  VIDEOINFOHEADER video{};
  video.AvgTimePerFrame = interval;
  video.bmiHeader.biSize = sizeof(video.bmiHeader);
  video.bmiHeader.biWidth = width;
  video.bmiHeader.biHeight = height;
  return video;
}

AM_MEDIA_TYPE VideoType(const GUID& subtype, VIDEOINFOHEADER& video) {
  AM_MEDIA_TYPE type{};
  type.majortype = MEDIATYPE_Video;
  type.subtype = subtype;
  type.formattype = FORMAT_VideoInfo;
  type.cbFormat = sizeof(video);
  type.pbFormat = reinterpret_cast<BYTE*>(&video);
  return type;
}

}  // namespace linux_support
