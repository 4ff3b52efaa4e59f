#include "VideoNode.h"

#include <linux/videodev2.h>

#include <cerrno>
#include <cstdint>

#include "Sysfs.h"
#include "V4l2Device.h"

namespace {

const char* WhyNotCapture(std::uint32_t capabilities) {
  constexpr std::uint32_t kConverts = V4L2_CAP_VIDEO_M2M | V4L2_CAP_VIDEO_M2M_MPLANE;
  constexpr std::uint32_t kShows =
      V4L2_CAP_VIDEO_OUTPUT | V4L2_CAP_VIDEO_OUTPUT_MPLANE | V4L2_CAP_VIDEO_OVERLAY;
  if ((capabilities & V4L2_CAP_VIDEO_CAPTURE) != 0) {
    return (capabilities & V4L2_CAP_STREAMING) != 0 ? "" : "it cannot stream into memory";
  }
  if ((capabilities & V4L2_CAP_META_CAPTURE) != 0) {
    return "it carries a camera's metadata, not its pictures";
  }
  if ((capabilities & V4L2_CAP_VIDEO_CAPTURE_MPLANE) != 0) {
    return "it delivers pictures in several planes only, as image processors do";
  }
  if ((capabilities & kConverts) != 0) {
    return "it converts pictures";
  }
  return (capabilities & kShows) != 0 ? "it takes pictures in" : "it delivers no video";
}

VideoNodeLook OfUnopened(int error, const std::filesystem::path& sysfsEntry) {
  if (error == ENOENT || error == ENODEV || error == ENXIO) {
    return {"there is no device behind it, or not where this program may see it", error};
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

VideoNodeLook LookAtVideoNode(const std::string& node, const std::filesystem::path& sysfsEntry) {
  V4l2Device device;
  if (const int error = device.Open(node); error != 0) {
    return OfUnopened(error, sysfsEntry);
  }
  v4l2_capability capability{};
  if (device.Ioctl(VIDIOC_QUERYCAP, &capability) != 0) {
    return {"it does not answer as a video device", 0};
  }
  return {WhyNotCapture((capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0 ? capability.device_caps
                                                                              : capability.capabilities),
          0};
}
