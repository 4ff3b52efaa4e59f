// A picture format as capture devices offer it.
#pragma once

#include "DirectShow.h"

struct VideoFormat {
  std::uint32_t fourCc = 0;
  std::uint32_t width = 0;  // pixels
  std::uint32_t height = 0;
  REFERENCE_TIME interval = 0;  // of a frame, in units of 100 ns, rounded down

  friend bool operator==(const VideoFormat& a, const VideoFormat& b) {
    return a.fourCc == b.fourCc && a.width == b.width && a.height == b.height && a.interval == b.interval;
  }
};

// V4L2's codes, which are also those of the DirectShow subtypes but for YUYV, there called YUY2.
constexpr std::uint32_t FourCc(const char (&text)[5]) {
  std::uint32_t code = 0;
  for (int i = 0; i < 4; ++i) {
    code |= static_cast<std::uint32_t>(static_cast<std::uint8_t>(text[i])) << (8 * i);
  }
  return code;
}
constexpr std::uint32_t kYuyv = FourCc("YUYV");
constexpr std::uint32_t kMjpg = FourCc("MJPG");
