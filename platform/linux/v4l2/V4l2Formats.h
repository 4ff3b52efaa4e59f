// The formats of a V4L2 device.
#pragma once

#include <linux/videodev2.h>

#include <vector>

#include "graph/VideoFormat.h"
#include "v4l2/V4l2Device.h"

namespace v4l2 {

// A format as it is offered, and the device's setting for it.
struct V4l2Format {
  graph::VideoFormat format;      // YUYV or MJPG
  std::uint32_t pixelFormat = 0;  // the device's pixel format: MJPG, or one that Yuy2Packer reads
  v4l2_fract interval{};          // as the device reports it, in seconds
};

// True for pixel formats that can be delivered, unchanged or packed as YUY2.
bool IsDeliverable(std::uint32_t pixelFormat);

// Appends the device's pixel formats in its order. Returns 0 or an error number.
int ListPixelFormats(const V4l2Device& device, std::vector<std::uint32_t>& pixelFormats);

// A frame interval in units of 100 ns, rounded down; 0 if the interval is invalid.
REFERENCE_TIME ToReferenceTime(const v4l2_fract& seconds);

// Lists all deliverable formats in the device's order, each size and rate of YUY2 and of MJPG once. YUY2 is
// taken from YUYV if the device has it, otherwise from the first format that can be packed. Ranges of sizes
// and rates are listed as the common values within them.
HRESULT ListV4l2Formats(const V4l2Device& device, std::vector<V4l2Format>& formats);

}  // namespace v4l2
