#include "v4l2/V4l2Formats.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>

#include "v4l2/Yuy2Packer.h"

namespace v4l2 {

namespace {

struct Size {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};

constexpr std::array<Size, 20> kCommonSizes{
    {{160, 120},  {176, 144},  {320, 180},   {320, 240},   {352, 288},   {424, 240},  {640, 360},
     {640, 480},  {800, 600},  {848, 480},   {960, 540},   {1024, 576},  {1024, 768}, {1280, 720},
     {1280, 800}, {1280, 960}, {1600, 1200}, {1920, 1080}, {2560, 1440}, {3840, 2160}}};

constexpr std::array<v4l2_fract, 9> kCommonIntervals{
    {{1, 60}, {1, 50}, {1, 30}, {1, 25}, {1, 24}, {1, 20}, {1, 15}, {1, 10}, {1, 5}}};

constexpr v4l2_fract kDefaultInterval{1, 30};

// Limits for drivers whose enumerations never end.
constexpr std::uint32_t kMaxEntries = 256;
constexpr std::size_t kMaxFormats = 1024;

// True at the end of an enumeration, and if the driver does not implement it.
bool IsEnd(int error) { return error == EINVAL || error == ENOTTY; }

// Exact: the products of 32-bit numbers fit in 64 bits.
bool IsAtMost(const v4l2_fract& a, const v4l2_fract& b) {
  return std::uint64_t{a.numerator} * b.denominator <= std::uint64_t{b.numerator} * a.denominator;
}

bool IsOnGrid(std::uint32_t value, std::uint32_t min, std::uint32_t max, std::uint32_t step) {
  return value >= min && value <= max && (step <= 1 || (value - min) % step == 0);
}

void AppendCommonSizes(const v4l2_frmsize_stepwise& range, std::vector<Size>& sizes) {
  for (const Size& size : kCommonSizes) {
    if (IsOnGrid(size.width, range.min_width, range.max_width, range.step_width) &&
        IsOnGrid(size.height, range.min_height, range.max_height, range.step_height)) {
      sizes.push_back(size);
    }
  }
  if (sizes.empty()) {
    sizes.push_back({range.max_width, range.max_height});
  }
}

// The current size of the device, for drivers that do not enumerate sizes.
int CurrentSize(const V4l2Device& device, std::vector<Size>& sizes) {
  v4l2_format current{};
  current.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  const int error = device.Ioctl(VIDIOC_G_FMT, &current);
  if (error == 0) {
    sizes.push_back({current.fmt.pix.width, current.fmt.pix.height});
  }
  return IsEnd(error) ? 0 : error;
}

int ListSizes(const V4l2Device& device, std::uint32_t fourCc, std::vector<Size>& sizes) {
  for (std::uint32_t index = 0; index < kMaxEntries; ++index) {
    v4l2_frmsizeenum entry{};
    entry.index = index;
    entry.pixel_format = fourCc;
    if (const int error = device.Ioctl(VIDIOC_ENUM_FRAMESIZES, &entry); error != 0) {
      return !IsEnd(error) ? error : index == 0 ? CurrentSize(device, sizes) : 0;
    }
    if (entry.type != V4L2_FRMSIZE_TYPE_DISCRETE) {
      AppendCommonSizes(entry.stepwise, sizes);
      return 0;
    }
    sizes.push_back({entry.discrete.width, entry.discrete.height});
  }
  return 0;
}

void AppendCommonIntervals(const v4l2_frmival_stepwise& range, std::vector<v4l2_fract>& intervals) {
  for (const v4l2_fract& interval : kCommonIntervals) {
    if (IsAtMost(range.min, interval) && IsAtMost(interval, range.max)) {
      intervals.push_back(interval);
    }
  }
  if (intervals.empty()) {
    intervals.push_back(range.min);
  }
}

// The current rate of the device, for drivers that do not enumerate rates.
int CurrentInterval(const V4l2Device& device, std::vector<v4l2_fract>& intervals) {
  v4l2_streamparm current{};
  current.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  const int error = device.Ioctl(VIDIOC_G_PARM, &current);
  const v4l2_fract& interval = current.parm.capture.timeperframe;
  intervals.push_back(error == 0 && ToReferenceTime(interval) > 0 ? interval : kDefaultInterval);
  return IsEnd(error) ? 0 : error;
}

int ListIntervals(const V4l2Device& device, std::uint32_t fourCc, const Size& size,
                  std::vector<v4l2_fract>& intervals) {
  for (std::uint32_t index = 0; index < kMaxEntries; ++index) {
    v4l2_frmivalenum entry{};
    entry.index = index;
    entry.pixel_format = fourCc;
    entry.width = size.width;
    entry.height = size.height;
    if (const int error = device.Ioctl(VIDIOC_ENUM_FRAMEINTERVALS, &entry); error != 0) {
      return !IsEnd(error) ? error : index == 0 ? CurrentInterval(device, intervals) : 0;
    }
    if (entry.type != V4L2_FRMIVAL_TYPE_DISCRETE) {
      AppendCommonIntervals(entry.stepwise, intervals);
      return 0;
    }
    intervals.push_back(entry.discrete);
  }
  return 0;
}

// YUY2 stores pixels in pairs, so packed widths must be even. Native YUYV is delivered unchanged.
bool HasDeliverableSize(std::uint32_t pixelFormat, const Size& size) {
  constexpr auto kMaxSide = static_cast<std::uint32_t>(std::numeric_limits<LONG>::max());
  const bool isSize = size.width > 0 && size.height > 0 && size.width <= kMaxSide && size.height <= kMaxSide;
  return isSize && (pixelFormat == graph::kMjpg || pixelFormat == graph::kYuyv || size.width % 2 == 0);
}

// Adds a format. Native YUYV replaces the same size and rate of a format that has to be packed.
void Offer(const V4l2Format& offer, std::vector<V4l2Format>& formats) {
  const auto same = std::find_if(formats.begin(), formats.end(),
                                 [&](const V4l2Format& other) { return other.format == offer.format; });
  if (same == formats.end()) {
    formats.push_back(offer);
  } else if (same->pixelFormat != graph::kYuyv && offer.pixelFormat == graph::kYuyv) {
    *same = offer;
  }
}

// Adds every size and rate of one pixel format.
int ListPixelFormat(const V4l2Device& device, std::uint32_t pixelFormat, std::vector<V4l2Format>& formats) {
  std::vector<Size> sizes;
  if (const int error = ListSizes(device, pixelFormat, sizes); error != 0) {
    return error;
  }
  for (const Size& size : sizes) {
    if (!HasDeliverableSize(pixelFormat, size)) {
      continue;
    }
    std::vector<v4l2_fract> intervals;
    if (const int error = ListIntervals(device, pixelFormat, size, intervals); error != 0) {
      return error;
    }
    for (const v4l2_fract& interval : intervals) {
      if (formats.size() == kMaxFormats) {
        return 0;
      }
      const std::uint32_t offered = pixelFormat == graph::kMjpg ? graph::kMjpg : graph::kYuyv;
      if (const REFERENCE_TIME units = ToReferenceTime(interval); units > 0) {
        Offer({{offered, size.width, size.height, units}, pixelFormat, interval}, formats);
      }
    }
  }
  return 0;
}

}  // namespace

REFERENCE_TIME ToReferenceTime(const v4l2_fract& seconds) {
  constexpr std::uint64_t kUnitsPerSecond = 10'000'000;
  return seconds.denominator == 0
             ? 0
             : static_cast<REFERENCE_TIME>(kUnitsPerSecond * seconds.numerator / seconds.denominator);
}

bool IsDeliverable(std::uint32_t pixelFormat) {
  return pixelFormat == graph::kMjpg || CanPackAsYuy2(pixelFormat);
}

int ListPixelFormats(const V4l2Device& device, std::vector<std::uint32_t>& pixelFormats) {
  for (std::uint32_t index = 0; index < kMaxEntries; ++index) {
    v4l2_fmtdesc entry{};
    entry.index = index;
    entry.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (const int error = device.Ioctl(VIDIOC_ENUM_FMT, &entry); error != 0) {
      return IsEnd(error) ? 0 : error;
    }
    pixelFormats.push_back(entry.pixelformat);
  }
  return 0;
}

HRESULT ListV4l2Formats(const V4l2Device& device, std::vector<V4l2Format>& formats) {
  formats.clear();
  std::vector<std::uint32_t> pixelFormats;
  if (const int error = ListPixelFormats(device, pixelFormats); error != 0) {
    return HresultFromErrno(error);
  }
  for (const std::uint32_t pixelFormat : pixelFormats) {
    if (!IsDeliverable(pixelFormat)) {
      continue;
    }
    if (const int error = ListPixelFormat(device, pixelFormat, formats); error != 0) {
      return HresultFromErrno(error);
    }
  }
  return S_OK;
}

}  // namespace v4l2
