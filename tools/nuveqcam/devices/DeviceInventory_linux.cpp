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

SurveyedUsbDevice SurveyedOf(const UsbDetails& details) {
  SurveyedUsbDevice device;
  device.place = details.place;
  device.name = details.name;
  device.model = details.model;
  device.id = details.id;
  device.isHub = details.isHub;
  device.hasVideo = details.hasVideo;
  device.isRemovable = details.isRemovable;
  device.verdictFrom = VerdictWord(details.source);
  device.verdict = VerdictText(details);
  device.connectType = details.connectType;
  device.attribute = details.attribute;
  device.verdictHub = details.hub;
  device.firstFunction = details.firstChildId;
  return device;
}

// Of a tree that says no more.
SurveyedUsbDevice SurveyedOf(const UsbDevice& known) {
  SurveyedUsbDevice device;
  device.place = known.id;
  device.id = known.id;
  device.isRemovable = known.isRemovable;
  device.verdictFrom = "host";
  device.verdict =
      known.isRemovable ? "can be removed: the host program says so" : "built in: the host program says so";
  device.firstFunction = known.firstChildId;
  return device;
}

std::vector<SurveyedUsbDevice> SurveyUsbDevices(DeviceTree& tree) {
  std::vector<UsbDetails> described = tree.DescribeUsbDevices();
  std::vector<UsbDevice> known;
  if (described.empty()) {
    known = tree.UsbDevices();
  }
  if (!known.empty()) {
    // The first device may have come just now: a tree that says more of its devices does so by now.
    described = tree.DescribeUsbDevices();
  }
  std::vector<SurveyedUsbDevice> devices;
  if (described.empty()) {
    std::transform(known.begin(), known.end(), std::back_inserter(devices),
                   [](const UsbDevice& device) { return SurveyedOf(device); });
  } else {
    std::transform(described.begin(), described.end(), std::back_inserter(devices),
                   [](const UsbDetails& details) { return SurveyedOf(details); });
  }
  return devices;
}

// By its first function, where nothing more is known.
std::string UsbPlaceOf(const CaptureDevice& device, const std::vector<SurveyedUsbDevice>& usbDevices) {
  const auto owner =
      std::find_if(usbDevices.begin(), usbDevices.end(), [&](const SurveyedUsbDevice& usbDevice) {
        return !usbDevice.firstFunction.empty() &&
               device.displayName.find(DisplayForm(usbDevice.firstFunction)) != std::string::npos;
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

SurveyedNode SurveyedOf(const VideoNodeDetails& details) {
  SurveyedNode node;
  node.node = details.node;
  node.name = details.name;
  node.usbPlace = details.usbPlace;
  node.isUsb = !details.usbPlace.empty();
  node.reason = details.whyNotCapture;
  if (details.openError != 0) {
    node.openError = std::generic_category().message(details.openError);
    node.openAdvice = OpenAdvice(details.openError);
  }
  return node;
}

std::vector<SurveyedNode> SurveyNodes(DeviceTree& tree) {
  std::vector<SurveyedNode> nodes;
  std::vector<std::string> files;
  for (const VideoNodeDetails& details : tree.DescribeVideoNodes()) {
    nodes.push_back(SurveyedOf(details));
    files.push_back(details.node);
  }
  std::map<std::string, std::vector<std::string>> users = UsersOf(files);
  for (SurveyedNode& node : nodes) {
    node.openIn = users[node.node];
  }
  return nodes;
}

// Takes what is known of the capture device's node off the nodes.
SurveyedNode TakeNodeOf(const CaptureDevice& device, PcSurvey& pc) {
  SurveyedNode node;
  const auto known = std::find_if(pc.otherNodes.begin(), pc.otherNodes.end(),
                                  [&](const SurveyedNode& other) { return other.node == device.node; });
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
  node.reason = device.whyNotBuiltIn;
  return node;
}

}  // namespace

PcSurvey SurveyPc() {
  const std::shared_ptr<DeviceTree> tree = CurrentDeviceTree();
  PcSurvey pc;
  pc.usbDevices = SurveyUsbDevices(*tree);
  pc.otherNodes = SurveyNodes(*tree);
  for (const CaptureDevice& device : tree->CaptureDevices()) {
    pc.captureDevices.push_back(TakeNodeOf(device, pc));
  }
  // Capture devices that have gone between the two looks.
  std::erase_if(pc.otherNodes, [](const SurveyedNode& node) { return node.reason.empty(); });
  return pc;
}
