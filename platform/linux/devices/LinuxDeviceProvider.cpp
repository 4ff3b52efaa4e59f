#include "devices/LinuxDeviceProvider.h"

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

#include "devices/Sysfs.h"
#include "devices/SysfsUsb.h"
#include "devices/UsbDescription.h"
#include "devices/VideoNode.h"
#include "v4l2/SystemCalls.h"
#include "v4l2/V4l2Source.h"

namespace {

namespace fs = std::filesystem;

// The interface class of cameras on Windows, which ends a camera's path there.
constexpr const char* kCameraClass = "#{65e8773d-8f56-11d0-a3b9-00a0c9223196}";

std::string WhyNotBuiltIn(Attachment attachment) {
  switch (attachment) {
    case Attachment::kFixed:
      return {};
    case Attachment::kRemovable:
      return "it is plugged in: its USB device can be removed";
    case Attachment::kUnknown:
      return "the PC's firmware does not say that its USB port is an internal one";
    case Attachment::kMissing:
      return "the kernel does not show whether its USB device can be removed";
    case Attachment::kBelowRemovableHub:
      return "it belongs to a USB hub that can be removed, or may be";
  }
  return {};
}

// A place that is not on USB, as a path text: "platform#vivid.0".
std::string PlaceText(const fs::path& device, const fs::path& sysfsRoot) {
  std::string place = device.lexically_relative(sysfsRoot / "devices").generic_string();
  for (char& c : place) {
    const auto byte = static_cast<unsigned char>(c);
    c = c == '/' ? '#' : byte > ' ' && byte < 0x7F ? c : '_';
  }
  return DisplayForm(place);
}

// Nothing for a node that has gone meanwhile.
std::optional<CaptureDevice> Describe(const fs::path& entry, const std::string& path,
                                      const fs::path& sysfsRoot) {
  const SysfsUsb usb(sysfsRoot);
  fs::path parent = SysfsPlaceOf(entry / "device");
  if (parent.empty()) {
    // A node of no device: a loopback camera has only itself.
    parent = SysfsPlaceOf(entry);
  }
  if (parent.empty()) {
    return std::nullopt;
  }
  const std::string id = usb.InterfaceId(parent);
  CaptureDevice device;
  device.displayName = R"(@device:pnp:\\?\)" + (id.empty() ? PlaceText(parent, sysfsRoot) : DisplayForm(id)) +
                       kCameraClass + R"(\video-index)" + ReadSysfsLine(entry / "index");
  device.name = ReadSysfsLine(entry / "name");
  device.node = path;
  device.whyNotBuiltIn =
      id.empty() ? "it is not a USB device" : WhyNotBuiltIn(usb.AttachmentOf(parent.parent_path()));
  device.makeSource = [path] { return std::make_unique<V4l2Source>(path); };
  return device;
}

// A video node of the machine, and whether it is a capture device.
struct VideoNode {
  fs::path entry;  // in sysfs
  std::string path;
  VideoNodeLook look;
};

std::vector<VideoNode> ListVideoNodes(const fs::path& sysfsRoot) {
  std::vector<VideoNode> nodes;
  for (const fs::path& entry : SysfsEntries(sysfsRoot / "class" / "video4linux")) {
    if (IsVideoNode(entry)) {
      const std::string path = (CurrentSystem().DevRoot() / entry.filename()).string();
      nodes.push_back({entry, path, LookAtVideoNode(path, entry)});
    }
  }
  // By number: a device's metadata node follows the node that it belongs to.
  std::sort(nodes.begin(), nodes.end(), [](const VideoNode& a, const VideoNode& b) {
    return std::pair(a.path.size(), a.path) < std::pair(b.path.size(), b.path);
  });
  return nodes;
}

// The folders of the USB interfaces, and of other devices, that have a capture device.
std::set<fs::path> FoldersOfCameras(const std::vector<VideoNode>& nodes) {
  std::set<fs::path> folders;
  for (const VideoNode& node : nodes) {
    if (node.look.IsCapture()) {
      folders.insert(SysfsPlaceOf(node.entry / "device"));
    }
  }
  return folders;
}

bool IsFirstFunction(const UsbDevice& usbDevice, const CaptureDevice& camera) {
  return !usbDevice.firstChildId.empty() &&
         camera.displayName.find(DisplayForm(usbDevice.firstChildId)) != std::string::npos;
}

// The first USB device that is fixed and has a camera as its first child, as the camera library goes
// through them; null: there is none.
const UsbDevice* ChosenOf(const std::vector<UsbDevice>& usbDevices,
                          const std::vector<CaptureDevice>& cameras) {
  const auto chosen = std::find_if(usbDevices.begin(), usbDevices.end(), [&](const UsbDevice& usbDevice) {
    return !usbDevice.isRemovable &&
           std::any_of(cameras.begin(), cameras.end(),
                       [&](const CaptureDevice& camera) { return IsFirstFunction(usbDevice, camera); });
  });
  return chosen == usbDevices.end() ? nullptr : &*chosen;
}

// Of several cameras that could be the PC's own one is; the others are told why not.
void ChooseOne(const std::vector<UsbDevice>& usbDevices, std::vector<CaptureDevice>& cameras) {
  const UsbDevice* const chosen = ChosenOf(usbDevices, cameras);
  bool isTaken = false;
  for (CaptureDevice& camera : cameras) {
    const bool isOfChosen = chosen != nullptr && IsFirstFunction(*chosen, camera);
    const bool isOfFixed = std::any_of(usbDevices.begin(), usbDevices.end(), [&](const UsbDevice& usbDevice) {
      return !usbDevice.isRemovable && IsFirstFunction(usbDevice, camera);
    });
    if (isOfChosen && !std::exchange(isTaken, true)) {
      continue;
    }
    if (camera.whyNotBuiltIn.empty()) {
      camera.whyNotBuiltIn = isOfChosen  ? "it is another node of the camera that is taken"
                             : isOfFixed ? "another built-in camera comes first"
                                         : "it is not the first camera of its USB device";
    }
  }
}

}  // namespace

std::vector<CaptureDevice> LinuxDeviceTree::CaptureDevices() {
  const fs::path sysfsRoot = CurrentSystem().SysfsRoot();
  const std::vector<VideoNode> nodes = ListVideoNodes(sysfsRoot);
  std::vector<CaptureDevice> cameras;
  for (const VideoNode& node : nodes) {
    if (!node.look.IsCapture()) {
      continue;
    }
    if (auto camera = Describe(node.entry, node.path, sysfsRoot)) {
      cameras.push_back(std::move(*camera));
    }
  }
  std::sort(cameras.begin(), cameras.end(),
            [](const auto& a, const auto& b) { return a.displayName < b.displayName; });
  ChooseOne(SysfsUsb(sysfsRoot).Devices(FoldersOfCameras(nodes)), cameras);
  return cameras;
}

std::vector<UsbDevice> LinuxDeviceTree::UsbDevices() {
  const fs::path sysfsRoot = CurrentSystem().SysfsRoot();
  return SysfsUsb(sysfsRoot).Devices(FoldersOfCameras(ListVideoNodes(sysfsRoot)));
}

std::vector<UsbDetails> LinuxDeviceTree::DescribeUsbDevices() {
  const fs::path sysfsRoot = CurrentSystem().SysfsRoot();
  return ::DescribeUsbDevices(sysfsRoot, FoldersOfCameras(ListVideoNodes(sysfsRoot)));
}

std::vector<VideoNodeDetails> LinuxDeviceTree::DescribeVideoNodes() {
  const fs::path sysfsRoot = CurrentSystem().SysfsRoot();
  const SysfsUsb usb(sysfsRoot);
  std::vector<VideoNodeDetails> described;
  for (const VideoNode& node : ListVideoNodes(sysfsRoot)) {
    VideoNodeDetails details;
    details.node = node.path;
    details.name = ReadSysfsLine(node.entry / "name");
    details.whyNotCapture = node.look.whyNotCapture;
    details.openError = node.look.openError;
    if (const fs::path parent = SysfsPlaceOf(node.entry / "device"); !usb.InterfaceId(parent).empty()) {
      details.usbPlace = parent.parent_path().filename().string();
    }
    described.push_back(std::move(details));
  }
  return described;
}
