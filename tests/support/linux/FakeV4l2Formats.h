// What a video device offers: formats, sizes and intervals, and how V4L2 lists them.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include <linux/videodev2.h>

// Intervals of a size: all of them, or the least, the greatest and the step.
struct IntervalOffer {
  std::uint32_t type = V4L2_FRMIVAL_TYPE_DISCRETE;
  std::vector<v4l2_fract> values;
};

struct SizeOffer {
  std::uint32_t type = V4L2_FRMSIZE_TYPE_DISCRETE;
  v4l2_frmsize_stepwise size{};  // a discrete one is the minimum
  IntervalOffer intervals;
};

struct FormatOffer {
  std::uint32_t pixelFormat = 0;
  std::vector<SizeOffer> sizes;
};

// One size with the given whole frame rates.
SizeOffer Discrete(std::uint32_t width, std::uint32_t height, std::initializer_list<std::uint32_t> rates);
// YUYV and MJPG in small pictures, whose frames are quickly made.
std::vector<FormatOffer> WebcamFormats();

bool IsCompressed(std::uint32_t pixelFormat);
// Bytes of a line of luma or of packed samples without padding, and of a picture with lines of that many
// bytes.
std::uint32_t LineBytes(std::uint32_t pixelFormat, std::uint32_t width);
std::uint32_t PictureBytes(std::uint32_t pixelFormat, std::uint32_t bytesPerLine, std::uint32_t height);
// Null when it is not offered.
const SizeOffer* FindSize(const std::vector<FormatOffer>& formats, const v4l2_pix_format& format);
// The offer's interval that is nearest to the one asked for.
v4l2_fract Nearest(const IntervalOffer& offer, const v4l2_fract& asked);

// The answers of the requests that list them: an error number or 0.
int EnumFormat(const std::vector<FormatOffer>& formats, v4l2_fmtdesc& format);
int EnumSize(const std::vector<FormatOffer>& formats, v4l2_frmsizeenum& size);
int EnumInterval(const std::vector<FormatOffer>& formats, v4l2_frmivalenum& interval);

// A text into one of V4L2's fields.
template <std::size_t Size>
void SetText(__u8 (&field)[Size], const std::string& text) {
  field[text.copy(reinterpret_cast<char*>(field), Size - 1)] = 0;
}
