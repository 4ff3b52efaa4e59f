#include "devices/LinuxDeviceProvider.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "devices/Sysfs.h"
#include "devices/SysfsUsb.h"
#include "devices/VideoNode.h"
#include "v4l2/SystemCalls.h"
#include "v4l2/V4l2Source.h"

namespace devices {

namespace {

namespace fs = std::filesystem;

// The device interface class of cameras on Windows, the last part of their display names.
constexpr const char* kCameraClass = "#{65e8773d-8f56-11d0-a3b9-00a0c9223196}";

// Human-readable; empty for a fixed device.
std::string ExclusionReason(const UsbRemovability& removability) {
  if (!removability.isRemovable) {
    return {};
  }
  if (removability.source == RemovabilitySource::kParentHub) {
    return "it is connected to a USB hub that is removable or treated as removable";
  }
  if (removability.attribute == "removable") {
    return "its USB device is removable";
  }
  return removability.attribute == "unknown"
             ? "the firmware does not declare its USB port internal"
             : "the kernel does not report whether its USB device is removable";
}

// The path of a device that is not on USB: "platform#vivid.0".
std::string DevicePathText(const fs::path& device, const fs::path& sysfsRoot) {
  std::string place = device.lexically_relative(sysfsRoot / "devices").generic_string();
  for (char& c : place) {
    const auto byte = static_cast<unsigned char>(c);
    c = c == '/' ? '#' : byte > ' ' && byte < 0x7F ? c : '_';
  }
  return ToDisplayNameForm(place);
}

// The folder of the device that a video node belongs to; empty if it has none or has disappeared.
fs::path FolderOfDevice(const fs::path& entry) {
  const fs::path node = ResolveSysfsLink(entry);
  return node.empty() ? node : ResolveSysfsLink(node / "device");
}

// Returns nothing for a node that has disappeared.
std::optional<CaptureDevice> Describe(const fs::path& entry, const std::string& path,
                                      const fs::path& sysfsRoot) {
  const SysfsUsb usb(sysfsRoot);
  fs::path parent = FolderOfDevice(entry);
  if (parent.empty()) {
    // A node without a device, such as a loopback camera.
    parent = ResolveSysfsLink(entry);
  }
  if (parent.empty()) {
    return std::nullopt;
  }
  const std::string id = usb.InterfaceId(parent);
  CaptureDevice device;
  device.displayName = R"(@device:pnp:\\?\)" +
                       (id.empty() ? DevicePathText(parent, sysfsRoot) : ToDisplayNameForm(id)) +
                       kCameraClass + R"(\video-index)" + ReadSysfsLine(entry / "index");
  device.name = ReadSysfsLine(entry / "name");
  device.node = path;
  device.exclusionReason =
      id.empty() ? "it is not a USB device" : ExclusionReason(DetermineUsbRemovability(parent.parent_path()));
  device.makeSource = [path] { return std::make_unique<v4l2::V4l2Source>(path); };
  return device;
}

// A video node of the machine.
struct VideoNode {
  fs::path entry;  // in sysfs
  std::string path;
  VideoNodeStatus status;
};

std::vector<VideoNode> ListVideoNodes(const fs::path& sysfsRoot) {
  std::vector<VideoNode> nodes;
  for (const fs::path& entry : ListSysfsEntries(sysfsRoot / "class" / "video4linux")) {
    if (IsVideoNode(entry)) {
      const std::string path = (v4l2::CurrentSystemCalls().DevRoot() / entry.filename()).string();
      nodes.push_back({entry, path, ProbeVideoNode(path, entry)});
    }
  }
  // By number: a device's metadata node follows its capture node.
  std::sort(nodes.begin(), nodes.end(), [](const VideoNode& a, const VideoNode& b) {
    return std::pair(a.path.size(), a.path) < std::pair(b.path.size(), b.path);
  });
  return nodes;
}

CameraFolders FoldersOfCameras(const std::vector<VideoNode>& nodes) {
  CameraFolders folders;
  for (const VideoNode& node : nodes) {
    if (node.status.IsCapture()) {
      folders.insert(FolderOfDevice(node.entry));
    }
  }
  return folders;
}

bool IsFirstFunction(const UsbDevice& usbDevice, const CaptureDevice& camera) {
  return !usbDevice.firstChildId.empty() &&
         camera.displayName.find(ToDisplayNameForm(usbDevice.firstChildId)) != std::string::npos;
}

// Returns the first USB device that is fixed and has a camera as its first child, which is how the camera
// library chooses; null if there is none.
const UsbDevice* FindBuiltInDevice(const std::vector<UsbDevice>& usbDevices,
                                   const std::vector<CaptureDevice>& cameras) {
  const auto chosen = std::find_if(usbDevices.begin(), usbDevices.end(), [&](const UsbDevice& usbDevice) {
    return !usbDevice.isRemovable &&
           std::any_of(cameras.begin(), cameras.end(),
                       [&](const CaptureDevice& camera) { return IsFirstFunction(usbDevice, camera); });
  });
  return chosen == usbDevices.end() ? nullptr : &*chosen;
}

// Marks one camera as the built-in camera and gives all others a reason for their exclusion.
void SetExclusionReasons(const std::vector<UsbDevice>& usbDevices, std::vector<CaptureDevice>& cameras) {
  const UsbDevice* const builtIn = FindBuiltInDevice(usbDevices, cameras);
  bool isFound = false;
  for (CaptureDevice& camera : cameras) {
    const bool isOfBuiltIn = builtIn != nullptr && IsFirstFunction(*builtIn, camera);
    const bool isFirst = std::any_of(usbDevices.begin(), usbDevices.end(), [&](const UsbDevice& usbDevice) {
      return IsFirstFunction(usbDevice, camera);
    });
    if (isOfBuiltIn && !std::exchange(isFound, true)) {
      continue;
    }
    // Cameras of removable devices have a reason already.
    if (camera.exclusionReason.empty()) {
      camera.exclusionReason = isOfBuiltIn ? "it is another node of the selected camera"
                               : isFirst   ? "another built-in camera comes first"
                                           : "it is not the first camera of its USB device";
    }
  }
}

}  // namespace

std::vector<CaptureDevice> LinuxDeviceProvider::CaptureDevices() {
  const fs::path sysfsRoot = v4l2::CurrentSystemCalls().SysfsRoot();
  const std::vector<VideoNode> nodes = ListVideoNodes(sysfsRoot);
  std::vector<CaptureDevice> cameras;
  for (const VideoNode& node : nodes) {
    if (!node.status.IsCapture()) {
      continue;
    }
    if (auto camera = Describe(node.entry, node.path, sysfsRoot)) {
      cameras.push_back(std::move(*camera));
    }
  }
  std::sort(cameras.begin(), cameras.end(),
            [](const auto& a, const auto& b) { return a.displayName < b.displayName; });
  SetExclusionReasons(SysfsUsb(sysfsRoot).Devices(FoldersOfCameras(nodes)), cameras);
  return cameras;
}

std::vector<UsbDevice> LinuxDeviceProvider::UsbDevices() {
  const fs::path sysfsRoot = v4l2::CurrentSystemCalls().SysfsRoot();
  return SysfsUsb(sysfsRoot).Devices(FoldersOfCameras(ListVideoNodes(sysfsRoot)));
}

std::vector<UsbDetails> LinuxDeviceProvider::DescribeUsbDevices() {
  const fs::path sysfsRoot = v4l2::CurrentSystemCalls().SysfsRoot();
  return SysfsUsb(sysfsRoot).Describe(FoldersOfCameras(ListVideoNodes(sysfsRoot)));
}

std::vector<VideoNodeDetails> LinuxDeviceProvider::DescribeVideoNodes() {
  const fs::path sysfsRoot = v4l2::CurrentSystemCalls().SysfsRoot();
  const SysfsUsb usb(sysfsRoot);
  std::vector<VideoNodeDetails> described;
  for (const VideoNode& node : ListVideoNodes(sysfsRoot)) {
    VideoNodeDetails details;
    details.node = node.path;
    details.name = ReadSysfsLine(node.entry / "name");
    details.rejectionReason = node.status.rejectionReason;
    details.openError = node.status.openError;
    if (const fs::path parent = FolderOfDevice(node.entry); !usb.InterfaceId(parent).empty()) {
      details.usbPlace = parent.parent_path().filename().string();
    }
    described.push_back(std::move(details));
  }
  return described;
}

}  // namespace devices
