#include "devices/DeviceInventory.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <map>
#include <system_error>
#include <utility>

#include "devices/DeviceProvider.h"
#include "devices/NodeUsers.h"
#include "devices/RemovabilityText.h"

namespace nuveqcam {
namespace {

UsbDeviceInfo ToUsbDeviceInfo(const devices::UsbDetails& details) {
  UsbDeviceInfo device;
  device.place = details.place;
  device.name = details.name;
  device.model = details.model;
  device.id = details.id;
  device.isHub = details.isHub;
  device.hasVideo = details.hasVideo;
  device.isRemovable = details.removability.isRemovable;
  device.removabilitySource = SourceWord(details.removability.source);
  device.removabilityText = RemovabilityText(details.removability);
  device.connectType = details.removability.connectType;
  device.attribute = details.removability.attribute;
  device.removabilityHub = details.removability.hub;
  device.firstFunction = details.firstChildId;
  return device;
}

// For a provider without details.
UsbDeviceInfo ToUsbDeviceInfo(const devices::UsbDevice& source) {
  UsbDeviceInfo device;
  device.place = source.id;
  device.id = source.id;
  device.isRemovable = source.isRemovable;
  device.removabilitySource = "host";
  device.removabilityText = source.isRemovable ? "removable: according to the host program"
                                               : "built in: according to the host program";
  device.firstFunction = source.firstChildId;
  return device;
}

std::vector<UsbDeviceInfo> ListUsbDevices(devices::DeviceProvider& provider) {
  std::vector<devices::UsbDetails> details = provider.DescribeUsbDevices();
  std::vector<devices::UsbDevice> basic;
  if (details.empty()) {
    basic = provider.UsbDevices();
  }
  if (!basic.empty()) {
    // The first device may have been added between the two calls: ask a provider with details again.
    details = provider.DescribeUsbDevices();
  }
  std::vector<UsbDeviceInfo> devices;
  if (details.empty()) {
    std::transform(basic.begin(), basic.end(), std::back_inserter(devices),
                   [](const devices::UsbDevice& device) { return ToUsbDeviceInfo(device); });
  } else {
    std::transform(details.begin(), details.end(), std::back_inserter(devices),
                   [](const devices::UsbDetails& device) { return ToUsbDeviceInfo(device); });
  }
  return devices;
}

// The place of the capture device's USB device, found by its first function.
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
      // Not the file's permissions, but the device rules of a container's or a service's control group.
      return "in a container or a service, allow access to the device";
    case ENOENT:
    case ENODEV:
    case ENXIO:
      return "in a container, pass the device into it; else check with 'sudo dmesg' whether it was removed";
    case EBUSY:
      return "close the program that uses it";
    default:
      return "look for the kernel's messages with 'sudo dmesg'";
  }
}

VideoNodeInfo ToVideoNodeInfo(const devices::VideoNodeDetails& details) {
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

std::vector<VideoNodeInfo> ListVideoNodes(devices::DeviceProvider& provider) {
  std::vector<VideoNodeInfo> nodes;
  std::vector<std::string> files;
  for (const devices::VideoNodeDetails& details : provider.DescribeVideoNodes()) {
    nodes.push_back(ToVideoNodeInfo(details));
    files.push_back(details.node);
  }
  std::map<std::string, std::vector<std::string>> users = FindNodeUsers(files);
  for (VideoNodeInfo& node : nodes) {
    node.openIn = users[node.node];
  }
  return nodes;
}

// Moves the capture device's node from the other nodes, if it is among them.
VideoNodeInfo ExtractNode(const devices::CaptureDevice& device, DeviceInventory& inventory) {
  VideoNodeInfo node;
  const auto known = std::find_if(inventory.otherNodes.begin(), inventory.otherNodes.end(),
                                  [&](const VideoNodeInfo& other) { return other.node == device.node; });
  if (known != inventory.otherNodes.end()) {
    node = std::move(*known);
    inventory.otherNodes.erase(known);
    if (!node.reason.empty()) {
      // The node has become a capture device since it was examined; its error is out of date.
      node.openError.clear();
      node.openAdvice.clear();
    }
  } else {
    node.node = device.node;
    node.usbPlace = UsbPlaceOf(device, inventory.usbDevices);
    node.isUsb = device.displayName.find("usb#vid_") != std::string::npos;
  }
  node.name = device.name;
  node.reason = device.exclusionReason;
  return node;
}

}  // namespace

DeviceInventory GetDeviceInventory() {
  const std::shared_ptr<devices::DeviceProvider> provider = devices::CurrentDeviceProvider();
  DeviceInventory inventory;
  inventory.usbDevices = ListUsbDevices(*provider);
  inventory.otherNodes = ListVideoNodes(*provider);
  for (const devices::CaptureDevice& device : provider->CaptureDevices()) {
    inventory.captureDevices.push_back(ExtractNode(device, inventory));
  }
  // Capture devices that were removed between the two calls.
  std::erase_if(inventory.otherNodes, [](const VideoNodeInfo& node) { return node.reason.empty(); });
  return inventory;
}

}  // namespace nuveqcam
