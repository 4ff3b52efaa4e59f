#include "PcSurvey.h"

#include <algorithm>

#include "Platform.h"
#include "UsbDevices.h"

namespace {

std::string PlaceOf(const DescribedUsbDevice& described) {
  return described.location.empty() ? described.id : described.location;
}

SurveyedUsbDevice SurveyedOf(const DescribedUsbDevice& described) {
  SurveyedUsbDevice device;
  device.place = PlaceOf(described);
  device.name = described.name;
  device.model = ModelIn(described.id);
  device.id = described.id;
  device.isRemovable = described.device.isRemovable;
  device.verdictFrom = described.isStatusKnown ? "windows" : "missing";
  device.verdict = VerdictText(described.isStatusKnown, described.device.isRemovable);
  device.firstFunction = described.device.firstChildId;
  return device;
}

}  // namespace

PcSurvey SurveyPc() {
  const std::vector<DescribedUsbDevice> usbDevices = DescribedUsbDevices();
  PcSurvey pc;
  std::transform(usbDevices.begin(), usbDevices.end(), std::back_inserter(pc.usbDevices), SurveyedOf);
  for (const SeenDevice& seen : SeenDevices()) {
    SurveyedNode device;
    device.node = seen.where;
    device.name = seen.name;
    device.reason = seen.whyNotBuiltIn;
    const auto owner = std::find_if(
        usbDevices.begin(), usbDevices.end(),
        [&](const DescribedUsbDevice& described) { return IsFirstFunction(described.device, seen.where); });
    device.usbPlace = owner == usbDevices.end() ? "" : PlaceOf(*owner);
    pc.captureDevices.push_back(std::move(device));
  }
  return pc;
}
