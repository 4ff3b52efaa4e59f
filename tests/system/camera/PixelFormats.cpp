#include "PixelFormats.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace uvc {
namespace {

constexpr std::array<PixelFormat, 6> kPixelFormats{{
    {"YUYV", graph::kYuyv, graph::FourCc("YUY2"), FormatKind::kUncompressed, 16, true},
    {"UYVY", kUyvy, graph::FourCc("UYVY"), FormatKind::kUncompressed, 16, true},
    {"NV12", kNv12, graph::FourCc("NV12"), FormatKind::kUncompressed, 12, true},
    {"GREY", kGrey, graph::FourCc("Y800"), FormatKind::kUncompressed, 8, true},
    {"MJPG", graph::kMjpg, 0, FormatKind::kMjpeg, 16, true},
    {"H264", kH264, graph::FourCc("H264"), FormatKind::kFrameBased, 16, false},
}};

}  // namespace

std::span<const PixelFormat> PixelFormats() { return kPixelFormats; }

const PixelFormat* FindPixelFormat(std::string_view name) {
  const auto* const found = std::ranges::find(kPixelFormats, name, &PixelFormat::name);
  return found == kPixelFormats.end() ? nullptr : found;
}

const PixelFormat& PixelFormatOf(std::uint32_t fourCc) {
  const auto* const found = std::ranges::find(kPixelFormats, fourCc, &PixelFormat::fourCc);
  if (found == kPixelFormats.end()) {
    throw std::invalid_argument("unknown pixel format");
  }
  return *found;
}

}  // namespace uvc
