// What a V4L2 device offers.
#pragma once

#include <linux/videodev2.h>

#include <vector>

#include "graph/VideoFormat.h"
#include "v4l2/V4l2Device.h"

// A format as it is offered, and what the device is set to for it.
struct V4l2Format {
  VideoFormat format;             // YUYV or MJPG
  std::uint32_t pixelFormat = 0;  // the device's: MJPG, or one that Yuy2Packer reads
  v4l2_fract interval{};          // as the device writes it, in seconds
};

// True for pixel formats that are delivered: as they are, or packed as YUY2.
bool IsDeliverable(std::uint32_t pixelFormat);

// The device's pixel formats in its order. 0 or an error number.
int ListPixelFormats(const V4l2Device& device, std::vector<std::uint32_t>& pixelFormats);

// In units of 100 ns, rounded down; 0 for what is no interval.
REFERENCE_TIME UnitsOf(const v4l2_fract& seconds);

// Everything deliverable in the device's order, each size and rate of a layout once: from YUYV if the device
// has it, else from the first format that can be packed. Ranges of sizes and rates are represented by the
// usual values within them.
HRESULT ListV4l2Formats(const V4l2Device& device, std::vector<V4l2Format>& formats);
