#include "devices/DeviceInventory.h"

#include <algorithm>

#include "camera/CapturePlatform.h"
#include "devices/UsbDevices.h"

namespace {

UsbDeviceInfo SurveyedOf(const DescribedUsbDevice& described, const std::string& place) {
  const UsbDevice& known = described.device;
  UsbDeviceInfo device;
  device.place = place;
  device.name = described.name;
  device.model = ModelIn(described.id);
  device.id = described.id;
  device.isRemovable = known.isRemovable;
  device.verdictFrom = known.isStatusKnown ? "windows" : "missing";
  device.verdict = VerdictText(known.isStatusKnown, known.isRemovable);
  device.firstFunction = known.firstChildId;
  return device;
}

}  // namespace

DeviceInventory TakeInventory() {
  const std::vector<DescribedUsbDevice> usbDevices = DescribedUsbDevices();
  const std::vector<std::string> places = PlacesOf(usbDevices);
  DeviceInventory pc;
  std::transform(usbDevices.begin(), usbDevices.end(), places.begin(), std::back_inserter(pc.usbDevices),
                 SurveyedOf);
  for (const CaptureDeviceInfo& seen : ListCaptureDevices()) {
    VideoNodeInfo device;
    device.node = seen.where;
    device.name = seen.name;
    device.reason = seen.exclusionReason;
    device.isUsb = IsUsb(seen.where);
    const auto owner = std::find_if(
        usbDevices.begin(), usbDevices.end(),
        [&](const DescribedUsbDevice& described) { return IsFirstFunction(described.device, seen.where); });
    if (owner != usbDevices.end()) {
      device.usbPlace = places[static_cast<std::size_t>(owner - usbDevices.begin())];
    }
    pc.captureDevices.push_back(std::move(device));
  }
  return pc;
}
