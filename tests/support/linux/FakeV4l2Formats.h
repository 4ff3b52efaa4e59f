// The formats, sizes and intervals of a fake V4L2 device, and the requests that enumerate them.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include <linux/videodev2.h>

namespace linux_support {

// The intervals of a size: all of them, or minimum, maximum and step.
struct IntervalOffer {
  std::uint32_t type = V4L2_FRMIVAL_TYPE_DISCRETE;
  std::vector<v4l2_fract> values;
};

struct SizeOffer {
  std::uint32_t type = V4L2_FRMSIZE_TYPE_DISCRETE;
  v4l2_frmsize_stepwise size{};  // a discrete size uses the minimum
  IntervalOffer intervals;
};

struct FormatOffer {
  std::uint32_t pixelFormat = 0;
  std::vector<SizeOffer> sizes;
};

// A discrete size with integer frame rates.
SizeOffer Discrete(std::uint32_t width, std::uint32_t height, std::initializer_list<std::uint32_t> rates);
// YUYV and MJPG in small sizes, which are fast to generate.
std::vector<FormatOffer> WebcamFormats();

bool IsCompressed(std::uint32_t pixelFormat);
// Bytes of a line of luma or packed samples without padding, and of a picture with lines of that size.
std::uint32_t LineBytes(std::uint32_t pixelFormat, std::uint32_t width);
std::uint32_t PictureBytes(std::uint32_t pixelFormat, std::uint32_t bytesPerLine, std::uint32_t height);
// Null if the format or size is not offered.
const SizeOffer* FindSize(const std::vector<FormatOffer>& formats, const v4l2_pix_format& format);
// The offered interval nearest to the requested one.
v4l2_fract Nearest(const IntervalOffer& offer, const v4l2_fract& requested);

// VIDIOC_ENUM_FMT, VIDIOC_ENUM_FRAMESIZES and VIDIOC_ENUM_FRAMEINTERVALS. Return an error number or 0.
int EnumFormat(const std::vector<FormatOffer>& formats, v4l2_fmtdesc& format);
int EnumSize(const std::vector<FormatOffer>& formats, v4l2_frmsizeenum& size);
int EnumInterval(const std::vector<FormatOffer>& formats, v4l2_frmivalenum& interval);

// Copies a text into a field of a V4L2 structure.
template <std::size_t Size>
void SetText(__u8 (&field)[Size], const std::string& text) {
  field[text.copy(reinterpret_cast<char*>(field), Size - 1)] = 0;
}

}  // namespace linux_support
