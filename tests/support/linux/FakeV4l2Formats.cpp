#include "support/linux/FakeV4l2Formats.h"

#include <algorithm>
#include <cerrno>
#include <cmath>

namespace linux_support {
namespace {

double Seconds(const v4l2_fract& interval) {
  return static_cast<double>(interval.numerator) / interval.denominator;
}

bool Contains(const SizeOffer& offer, std::uint32_t width, std::uint32_t height) {
  const v4l2_frmsize_stepwise& size = offer.size;
  if (offer.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
    return width == size.min_width && height == size.min_height;
  }
  const auto isStep = [](std::uint32_t value, std::uint32_t min, std::uint32_t max, std::uint32_t step) {
    return value >= min && value <= max && (value - min) % std::max(step, 1U) == 0;
  };
  return isStep(width, size.min_width, size.max_width, size.step_width) &&
         isStep(height, size.min_height, size.max_height, size.step_height);
}

}  // namespace

bool IsCompressed(std::uint32_t pixelFormat) {
  return pixelFormat == V4L2_PIX_FMT_MJPEG || pixelFormat == V4L2_PIX_FMT_H264;
}

std::uint32_t LineBytes(std::uint32_t pixelFormat, std::uint32_t width) {
  switch (pixelFormat) {
    case V4L2_PIX_FMT_GREY:
    case V4L2_PIX_FMT_NV12:
    case V4L2_PIX_FMT_NV21:
    case V4L2_PIX_FMT_NV16:
    case V4L2_PIX_FMT_NV61:
    case V4L2_PIX_FMT_YUV420:
    case V4L2_PIX_FMT_YVU420:
    case V4L2_PIX_FMT_YUV422P:
      return width;
    default:
      return 2 * width;
  }
}

std::uint32_t PictureBytes(std::uint32_t pixelFormat, std::uint32_t bytesPerLine, std::uint32_t height) {
  switch (pixelFormat) {
    case V4L2_PIX_FMT_NV12:
    case V4L2_PIX_FMT_NV21:
    case V4L2_PIX_FMT_YUV420:
    case V4L2_PIX_FMT_YVU420:
      return bytesPerLine * (height + (height + 1) / 2);
    case V4L2_PIX_FMT_NV16:
    case V4L2_PIX_FMT_NV61:
    case V4L2_PIX_FMT_YUV422P:
      return bytesPerLine * height * 2;
    default:
      return bytesPerLine * height;
  }
}

SizeOffer Discrete(std::uint32_t width, std::uint32_t height, std::initializer_list<std::uint32_t> rates) {
  SizeOffer offer;
  offer.size.min_width = width;
  offer.size.min_height = height;
  for (const std::uint32_t rate : rates) {
    offer.intervals.values.push_back({1, rate});
  }
  return offer;
}

std::vector<FormatOffer> WebcamFormats() {
  return {{V4L2_PIX_FMT_YUYV, {Discrete(64, 48, {30, 15}), Discrete(32, 24, {30})}},
          {V4L2_PIX_FMT_MJPEG, {Discrete(64, 48, {30}), Discrete(128, 96, {30, 60})}}};
}

const SizeOffer* FindSize(const std::vector<FormatOffer>& formats, const v4l2_pix_format& format) {
  for (const FormatOffer& offer : formats) {
    for (const SizeOffer& size : offer.sizes) {
      if (offer.pixelFormat == format.pixelformat && Contains(size, format.width, format.height)) {
        return &size;
      }
    }
  }
  return nullptr;
}

v4l2_fract Nearest(const IntervalOffer& offer, const v4l2_fract& requested) {
  if (requested.numerator == 0 || requested.denominator == 0) {
    return offer.values.front();
  }
  if (offer.type != V4L2_FRMIVAL_TYPE_DISCRETE) {
    const bool isTooShort = Seconds(requested) < Seconds(offer.values.at(0));
    const bool isTooLong = Seconds(requested) > Seconds(offer.values.at(1));
    return isTooShort ? offer.values.at(0) : isTooLong ? offer.values.at(1) : requested;
  }
  return *std::min_element(
      offer.values.begin(), offer.values.end(), [&requested](const v4l2_fract& a, const v4l2_fract& b) {
        return std::abs(Seconds(a) - Seconds(requested)) < std::abs(Seconds(b) - Seconds(requested));
      });
}

int EnumFormat(const std::vector<FormatOffer>& formats, v4l2_fmtdesc& format) {
  if (format.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || format.index >= formats.size()) {
    return EINVAL;
  }
  const std::uint32_t pixelFormat = formats[format.index].pixelFormat;
  format.flags = IsCompressed(pixelFormat) ? V4L2_FMT_FLAG_COMPRESSED : 0;
  format.pixelformat = pixelFormat;
  SetText(format.description, "a format");
  return 0;
}

int EnumSize(const std::vector<FormatOffer>& formats, v4l2_frmsizeenum& size) {
  for (const FormatOffer& format : formats) {
    if (format.pixelFormat != size.pixel_format || size.index >= format.sizes.size()) {
      continue;
    }
    const SizeOffer& offer = format.sizes[size.index];
    size.type = offer.type;
    if (offer.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
      size.discrete = {offer.size.min_width, offer.size.min_height};
    } else {
      size.stepwise = offer.size;
    }
    return 0;
  }
  return EINVAL;
}

int EnumInterval(const std::vector<FormatOffer>& formats, v4l2_frmivalenum& interval) {
  v4l2_pix_format format{};
  format.pixelformat = interval.pixel_format;
  format.width = interval.width;
  format.height = interval.height;
  const SizeOffer* const size = FindSize(formats, format);
  if (size == nullptr) {
    return EINVAL;
  }
  const IntervalOffer& offer = size->intervals;
  interval.type = offer.type;
  if (offer.type == V4L2_FRMIVAL_TYPE_DISCRETE) {
    if (interval.index >= offer.values.size()) {
      return EINVAL;
    }
    interval.discrete = offer.values[interval.index];
    return 0;
  }
  interval.stepwise = {offer.values.at(0), offer.values.at(1), offer.values.at(2)};
  return interval.index == 0 ? 0 : EINVAL;
}

}  // namespace linux_support
