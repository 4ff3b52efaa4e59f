#include "devices/DeviceInventory.h"

#include <algorithm>

#include "camera/CapturePlatform.h"
#include "devices/UsbDevices.h"

namespace nuveqcam {
namespace {

UsbDeviceInfo ToUsbDeviceInfo(const UsbDeviceDetails& details, const std::string& place) {
  const UsbDevice& source = details.device;
  UsbDeviceInfo device;
  device.place = place;
  device.name = details.name;
  device.model = ModelIn(details.id);
  device.id = details.id;
  device.isRemovable = source.isRemovable;
  device.removabilitySource = source.isStatusKnown ? "windows" : "missing";
  device.removabilityText = RemovabilityText(source.isStatusKnown, source.isRemovable);
  device.firstFunction = source.firstChildId;
  return device;
}

}  // namespace

DeviceInventory GetDeviceInventory() {
  const std::vector<UsbDeviceDetails> usbDevices = DescribeUsbDevices();
  const std::vector<std::string> places = PlacesOf(usbDevices);
  DeviceInventory inventory;
  std::transform(usbDevices.begin(), usbDevices.end(), places.begin(),
                 std::back_inserter(inventory.usbDevices), ToUsbDeviceInfo);
  for (const CaptureDeviceInfo& captureDevice : ListCaptureDevices()) {
    VideoNodeInfo device;
    device.node = captureDevice.node;
    device.name = captureDevice.name;
    device.reason = captureDevice.exclusionReason;
    device.isUsb = IsUsb(captureDevice.node);
    const auto owner = std::find_if(
        usbDevices.begin(), usbDevices.end(),
        [&](const UsbDeviceDetails& details) { return IsFirstFunction(details.device, captureDevice.node); });
    if (owner != usbDevices.end()) {
      device.usbPlace = places[static_cast<std::size_t>(owner - usbDevices.begin())];
    }
    inventory.captureDevices.push_back(std::move(device));
  }
  return inventory;
}

}  // namespace nuveqcam
