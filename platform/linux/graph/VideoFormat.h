// A video format as capture devices offer it.
#pragma once

#include "DirectShow.h"

namespace graph {

struct VideoFormat {
  std::uint32_t fourCc = 0;
  std::uint32_t width = 0;  // pixels
  std::uint32_t height = 0;
  REFERENCE_TIME interval = 0;  // frame interval in units of 100 ns, rounded down

  bool operator==(const VideoFormat&) const = default;
};

// V4L2's four-character codes. DirectShow's subtypes have the same codes, except YUYV, which is YUY2 there.
constexpr std::uint32_t FourCc(const char (&text)[5]) {
  std::uint32_t code = 0;
  for (int i = 0; i < 4; ++i) {
    code |= static_cast<std::uint32_t>(static_cast<std::uint8_t>(text[i])) << (8 * i);
  }
  return code;
}
constexpr std::uint32_t kYuyv = FourCc("YUYV");
constexpr std::uint32_t kMjpg = FourCc("MJPG");

}  // namespace graph
