// The pixel formats that a function can offer, by their V4L2 names.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "graph/VideoFormat.h"

namespace uvc {

// The kinds of format descriptors in the video class.
enum class FormatKind { kUncompressed, kMjpeg, kFrameBased };

struct PixelFormat {
  std::string_view name;
  std::uint32_t fourCc = 0;    // V4L2 code
  std::uint32_t guidCode = 0;  // first four bytes of the GUID; unused for MJPG
  FormatKind kind = FormatKind::kUncompressed;
  std::uint8_t bitsPerPixel = 16;  // the maximum for a compressed format
  bool canStream = true;           // false: the camera offers the format but stalls the commit request
};

constexpr std::uint32_t kNv12 = graph::FourCc("NV12");
constexpr std::uint32_t kUyvy = graph::FourCc("UYVY");
constexpr std::uint32_t kGrey = graph::FourCc("GREY");
constexpr std::uint32_t kH264 = graph::FourCc("H264");

std::span<const PixelFormat> PixelFormats();

// Returns null for an unknown name.
const PixelFormat* FindPixelFormat(std::string_view name);

// fourCc: one of PixelFormats().
const PixelFormat& PixelFormatOf(std::uint32_t fourCc);

}  // namespace uvc
