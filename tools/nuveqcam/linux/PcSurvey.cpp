#include "PcSurvey.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "DeviceTree.h"
#include "NodeUsers.h"
#include "UsbVerdict.h"

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
  std::vector<SurveyedUsbDevice> devices;
  for (const UsbDetails& details : tree.DescribeUsbDevices()) {
    devices.push_back(SurveyedOf(details));
  }
  if (devices.empty()) {
    for (const UsbDevice& known : tree.UsbDevices()) {
      devices.push_back(SurveyedOf(known));
    }
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
    case EPERM:
      return "add your user to the group video and log in again";
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
  node.reason = details.whyNotCapture;
  if (details.openError != 0) {
    node.openError = std::generic_category().message(details.openError);
    node.openAdvice = OpenAdvice(details.openError);
  }
  node.openIn = UsersOf(details.node);
  return node;
}

}  // namespace

PcSurvey SurveyPc() {
  const std::shared_ptr<DeviceTree> tree = CurrentDeviceTree();
  PcSurvey pc;
  pc.usbDevices = SurveyUsbDevices(*tree);
  for (const VideoNodeDetails& details : tree->DescribeVideoNodes()) {
    pc.otherNodes.push_back(SurveyedOf(details));
  }
  for (const CaptureDevice& device : tree->CaptureDevices()) {
    SurveyedNode node;
    node.node = device.node;
    node.usbPlace = UsbPlaceOf(device, pc.usbDevices);
    const auto known = std::find_if(pc.otherNodes.begin(), pc.otherNodes.end(),
                                    [&](const SurveyedNode& other) { return other.node == device.node; });
    if (known != pc.otherNodes.end()) {
      node = *known;
      pc.otherNodes.erase(known);
    }
    node.name = device.name;
    node.reason = device.whyNotBuiltIn;
    pc.captureDevices.push_back(std::move(node));
  }
  // Capture devices that have gone between the two looks.
  std::erase_if(pc.otherNodes, [](const SurveyedNode& node) { return node.reason.empty(); });
  return pc;
}
