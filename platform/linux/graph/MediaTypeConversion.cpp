#include "graph/MediaTypeConversion.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace graph {

namespace {

constexpr std::uint64_t kUnitsPerSecond = 10'000'000;

// MJPG has no bits per pixel; drivers on Windows report 24.
WORD BitsPerPixel(std::uint32_t fourCc) { return fourCc == kYuyv ? 16 : 24; }

DWORD SaturateToDword(std::uint64_t value) {
  return static_cast<DWORD>(std::min<std::uint64_t>(value, std::numeric_limits<DWORD>::max()));
}

VIDEOINFOHEADER MakeHeader(const VideoFormat& format) {
  const std::uint64_t bits = std::uint64_t{format.width} * format.height * BitsPerPixel(format.fourCc);
  VIDEOINFOHEADER header{};
  header.AvgTimePerFrame = format.interval;
  if (format.interval > 0) {
    header.dwBitRate = SaturateToDword(bits * kUnitsPerSecond / static_cast<std::uint64_t>(format.interval));
  }
  header.bmiHeader.biSize = sizeof(header.bmiHeader);
  header.bmiHeader.biWidth = static_cast<LONG>(format.width);
  header.bmiHeader.biHeight = static_cast<LONG>(format.height);
  header.bmiHeader.biPlanes = 1;
  header.bmiHeader.biBitCount = BitsPerPixel(format.fourCc);
  header.bmiHeader.biCompression = SubtypeOf(format.fourCc).Data1;
  header.bmiHeader.biSizeImage = SaturateToDword(bits / 8);
  return header;
}

}  // namespace

void FreeMediaType::operator()(AM_MEDIA_TYPE* type) const {
  CoTaskMemFree(type->pbFormat);
  CoTaskMemFree(type);
}

MediaTypePtr MakeMediaType(const VideoFormat& format) {
  const VIDEOINFOHEADER header = MakeHeader(format);
  AM_MEDIA_TYPE type{};
  type.majortype = MEDIATYPE_Video;
  type.subtype = SubtypeOf(format.fourCc);
  type.bFixedSizeSamples = format.fourCc == kMjpg ? FALSE : TRUE;
  type.lSampleSize = header.bmiHeader.biSizeImage;
  type.formattype = FORMAT_VideoInfo;

  auto* const block = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(type)));
  if (block == nullptr) {
    return nullptr;
  }
  std::memcpy(block, &type, sizeof(type));
  MediaTypePtr made(block);
  made->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(sizeof(header)));
  if (made->pbFormat == nullptr) {
    return nullptr;
  }
  made->cbFormat = sizeof(header);
  std::memcpy(made->pbFormat, &header, sizeof(header));
  return made;
}

bool ReadMediaType(const AM_MEDIA_TYPE& type, VideoFormat& format) {
  if (!(type.majortype == MEDIATYPE_Video) || !(type.formattype == FORMAT_VideoInfo) ||
      type.pbFormat == nullptr || type.cbFormat < sizeof(VIDEOINFOHEADER)) {
    return false;
  }
  VIDEOINFOHEADER header{};
  std::memcpy(&header, type.pbFormat, sizeof(header));
  if (header.bmiHeader.biWidth <= 0 || header.bmiHeader.biHeight <= 0) {
    return false;
  }
  format.fourCc = FourCcOf(type.subtype);
  format.width = static_cast<std::uint32_t>(header.bmiHeader.biWidth);
  format.height = static_cast<std::uint32_t>(header.bmiHeader.biHeight);
  format.interval = header.AvgTimePerFrame;
  return format.fourCc != 0;
}

}  // namespace graph
