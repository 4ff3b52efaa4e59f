// What a V4L2 device offers.
#pragma once

#include <linux/videodev2.h>

#include <vector>

#include "V4l2Device.h"
#include "VideoFormat.h"

// A format with its interval as the device writes it, in seconds.
struct V4l2Format {
  VideoFormat format;
  v4l2_fract interval{};
};

// In units of 100 ns, rounded down; 0 for what is no interval.
REFERENCE_TIME UnitsOf(const v4l2_fract& seconds);

// In the device's order. Of ranges of sizes and rates the usual ones within them.
HRESULT ListV4l2Formats(const V4l2Device& device, std::vector<V4l2Format>& formats);
