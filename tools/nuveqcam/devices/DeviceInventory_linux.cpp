#include "devices/DeviceInventory.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <map>
#include <system_error>
#include <utility>

#include "devices/DeviceProvider.h"
#include "devices/NodeUsers.h"
#include "devices/UsbVerdict.h"

namespace {

UsbDeviceInfo SurveyedOf(const devices::UsbDetails& details) {
  UsbDeviceInfo device;
  device.place = details.place;
  device.name = details.name;
  device.model = details.model;
  device.id = details.id;
  device.isHub = details.isHub;
  device.hasVideo = details.hasVideo;
  device.isRemovable = details.removability.isRemovable;
  device.verdictFrom = VerdictWord(details.removability.source);
  device.verdict = VerdictText(details.removability);
  device.connectType = details.removability.connectType;
  device.attribute = details.removability.attribute;
  device.verdictHub = details.removability.hub;
  device.firstFunction = details.firstChildId;
  return device;
}

// Of a tree that says no more.
UsbDeviceInfo SurveyedOf(const devices::UsbDevice& known) {
  UsbDeviceInfo device;
  device.place = known.id;
  device.id = known.id;
  device.isRemovable = known.isRemovable;
  device.verdictFrom = "host";
  device.verdict =
      known.isRemovable ? "can be removed: the host program says so" : "built in: the host program says so";
  device.firstFunction = known.firstChildId;
  return device;
}

std::vector<UsbDeviceInfo> SurveyUsbDevices(devices::DeviceProvider& tree) {
  std::vector<devices::UsbDetails> described = tree.DescribeUsbDevices();
  std::vector<devices::UsbDevice> known;
  if (described.empty()) {
    known = tree.UsbDevices();
  }
  if (!known.empty()) {
    // The first device may have come just now: a tree that says more of its devices does so by now.
    described = tree.DescribeUsbDevices();
  }
  std::vector<UsbDeviceInfo> devices;
  if (described.empty()) {
    std::transform(known.begin(), known.end(), std::back_inserter(devices),
                   [](const devices::UsbDevice& device) { return SurveyedOf(device); });
  } else {
    std::transform(described.begin(), described.end(), std::back_inserter(devices),
                   [](const devices::UsbDetails& details) { return SurveyedOf(details); });
  }
  return devices;
}

// By its first function, where nothing more is known.
std::string UsbPlaceOf(const devices::CaptureDevice& device, const std::vector<UsbDeviceInfo>& usbDevices) {
  const auto owner = std::find_if(usbDevices.begin(), usbDevices.end(), [&](const UsbDeviceInfo& usbDevice) {
    return !usbDevice.firstFunction.empty() &&
           device.displayName.find(devices::ToDisplayNameForm(usbDevice.firstFunction)) != std::string::npos;
  });
  return owner == usbDevices.end() ? std::string() : owner->place;
}

const char* OpenAdvice(int error) {
  switch (error) {
    case EACCES:
      return "add your user to the group video and log in again";
    case EPERM:
      // Not the file's permissions: what the control group of a container or a service may use.
      return "in a container or a service, hand the device in";
    case ENOENT:
    case ENODEV:
    case ENXIO:
      return "in a container, hand the device in; else see with 'sudo dmesg' whether it has just gone";
    case EBUSY:
      return "close the program that uses it";
    default:
      return "see with 'sudo dmesg' what the kernel says of it";
  }
}

VideoNodeInfo SurveyedOf(const devices::VideoNodeDetails& details) {
  VideoNodeInfo node;
  node.node = details.node;
  node.name = details.name;
  node.usbPlace = details.usbPlace;
  node.isUsb = !details.usbPlace.empty();
  node.reason = details.rejectionReason;
  if (details.openError != 0) {
    node.openError = std::generic_category().message(details.openError);
    node.openAdvice = OpenAdvice(details.openError);
  }
  return node;
}

std::vector<VideoNodeInfo> SurveyNodes(devices::DeviceProvider& tree) {
  std::vector<VideoNodeInfo> nodes;
  std::vector<std::string> files;
  for (const devices::VideoNodeDetails& details : tree.DescribeVideoNodes()) {
    nodes.push_back(SurveyedOf(details));
    files.push_back(details.node);
  }
  std::map<std::string, std::vector<std::string>> users = UsersOf(files);
  for (VideoNodeInfo& node : nodes) {
    node.openIn = users[node.node];
  }
  return nodes;
}

// Takes what is known of the capture device's node off the nodes.
VideoNodeInfo TakeNodeOf(const devices::CaptureDevice& device, DeviceInventory& pc) {
  VideoNodeInfo node;
  const auto known = std::find_if(pc.otherNodes.begin(), pc.otherNodes.end(),
                                  [&](const VideoNodeInfo& other) { return other.node == device.node; });
  if (known != pc.otherNodes.end()) {
    node = std::move(*known);
    pc.otherNodes.erase(known);
    if (!node.reason.empty()) {
      // It was no capture device a moment ago, so that what was wrong with it is over.
      node.openError.clear();
      node.openAdvice.clear();
    }
  } else {
    node.node = device.node;
    node.usbPlace = UsbPlaceOf(device, pc.usbDevices);
    node.isUsb = device.displayName.find("usb#vid_") != std::string::npos;
  }
  node.name = device.name;
  node.reason = device.exclusionReason;
  return node;
}

}  // namespace

DeviceInventory TakeInventory() {
  const std::shared_ptr<devices::DeviceProvider> tree = devices::CurrentDeviceProvider();
  DeviceInventory pc;
  pc.usbDevices = SurveyUsbDevices(*tree);
  pc.otherNodes = SurveyNodes(*tree);
  for (const devices::CaptureDevice& device : tree->CaptureDevices()) {
    pc.captureDevices.push_back(TakeNodeOf(device, pc));
  }
  // Capture devices that have gone between the two looks.
  std::erase_if(pc.otherNodes, [](const VideoNodeInfo& node) { return node.reason.empty(); });
  return pc;
}
