#include "devices/VideoNode.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <vector>

#include "devices/Sysfs.h"
#include "v4l2/V4l2Formats.h"

namespace devices {

namespace {

// "GREY"; the trailing space of three-letter codes is dropped.
std::string FourCcText(std::uint32_t fourCc) {
  std::string text;
  for (int shift = 0; shift < 32; shift += 8) {
    const auto byte = static_cast<unsigned char>(fourCc >> shift);
    text += std::isgraph(byte) != 0 || byte == ' ' ? static_cast<char>(byte) : '?';
  }
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

// Returns why none of the device's pixel formats can be used; empty if one can. Also empty if listing them
// fails: using the camera then reports the error.
std::string FormatRejectionReason(const v4l2::V4l2Device& device) {
  constexpr std::size_t kMaxNamed = 8;
  std::vector<std::uint32_t> pixelFormats;
  if (v4l2::ListPixelFormats(device, pixelFormats) != 0 ||
      std::any_of(pixelFormats.begin(), pixelFormats.end(), v4l2::IsDeliverable)) {
    return {};
  }
  std::string names;
  for (std::size_t i = 0; i < std::min(pixelFormats.size(), kMaxNamed); ++i) {
    names += (i == 0 ? "" : ", ") + FourCcText(pixelFormats[i]);
  }
  if (pixelFormats.size() > kMaxNamed) {
    names += ", ...";
  }
  return "it delivers no format that the library can use (" + (names.empty() ? "it lists none" : names) + ")";
}

const char* CapabilityRejectionReason(std::uint32_t capabilities) {
  constexpr std::uint32_t kM2m = V4L2_CAP_VIDEO_M2M | V4L2_CAP_VIDEO_M2M_MPLANE;
  constexpr std::uint32_t kOutput =
      V4L2_CAP_VIDEO_OUTPUT | V4L2_CAP_VIDEO_OUTPUT_MPLANE | V4L2_CAP_VIDEO_OVERLAY;
  if ((capabilities & V4L2_CAP_VIDEO_CAPTURE) != 0) {
    return (capabilities & V4L2_CAP_STREAMING) != 0 ? "" : "it cannot stream into memory";
  }
  if ((capabilities & V4L2_CAP_META_CAPTURE) != 0) {
    return "it carries a camera's metadata, not its pictures";
  }
  if ((capabilities & V4L2_CAP_VIDEO_CAPTURE_MPLANE) != 0) {
    return "it supports only multi-planar capture";
  }
  if ((capabilities & kM2m) != 0) {
    return "it is a memory-to-memory device";
  }
  return (capabilities & kOutput) != 0 ? "it is a video output device" : "it delivers no video";
}

VideoNodeStatus StatusOfUnopened(int error, const std::filesystem::path& sysfsEntry) {
  if (error == ENOENT || error == ENODEV || error == ENXIO) {
    return {"the device does not exist or is not visible to this process", error};
  }
  return {ReadSysfsLine(sysfsEntry / "index") == "0"
              ? ""
              : "it cannot be opened and is not its camera's first node",
          error};
}

}  // namespace

bool IsVideoNode(const std::filesystem::path& sysfsEntry) {
  return sysfsEntry.filename().string().starts_with("video");
}

VideoNodeStatus ProbeVideoNode(const std::string& node, const std::filesystem::path& sysfsEntry) {
  v4l2::V4l2Device device;
  if (const int error = device.Open(node); error != 0) {
    return StatusOfUnopened(error, sysfsEntry);
  }
  v4l2_capability capability{};
  if (device.Ioctl(VIDIOC_QUERYCAP, &capability) != 0) {
    return {"it does not support VIDIOC_QUERYCAP", 0};
  }
  std::string reason = CapabilityRejectionReason((capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0
                                                     ? capability.device_caps
                                                     : capability.capabilities);
  return {reason.empty() ? FormatRejectionReason(device) : std::move(reason), 0};
}

}  // namespace devices
