// The devices that the simulated PC presents.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>

#include "support/simulated/SimulatedCameraHelpers.h"

namespace simulated_support {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

std::vector<std::string> NamesOf(simulated::SimulatedPc& pc) {
  std::vector<std::string> names;
  for (const devices::CaptureDevice& device : pc.CaptureDevices()) {
    names.push_back(device.name);
  }
  return names;
}

// An interface id in the form in which display names contain it.
std::string ToDisplayNameForm(std::string id) {
  std::transform(id.begin(), id.end(), id.begin(), [](char c) {
    return c == '\\' ? '#' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  });
  return id;
}

// The cameras on removable or on fixed USB devices.
std::vector<std::string> CamerasOnUsb(simulated::SimulatedPc& pc, bool isRemovable) {
  std::vector<std::string> names;
  for (const devices::UsbDevice& usb : pc.UsbDevices()) {
    for (const devices::CaptureDevice& device : pc.CaptureDevices()) {
      if (usb.isRemovable == isRemovable && !usb.firstChildId.empty() &&
          device.displayName.find(ToDisplayNameForm(usb.firstChildId)) != std::string::npos) {
        names.push_back(device.name);
      }
    }
  }
  return names;
}

TEST(SimulatedPcTest, ListsThePlugInCameraBeforeTheBuiltInCamera) {
  simulated::SimulatedPc pc;
  const std::vector<devices::CaptureDevice> devices = pc.CaptureDevices();
  ASSERT_EQ(devices.size(), 2U);
  EXPECT_EQ(devices[0].name, "USB Camera");
  EXPECT_THAT(devices[0].exclusionReason, HasSubstr("is removable"));
  EXPECT_EQ(devices[0].displayName, R"(@device:pnp:\\?\usb#vid_046d&pid_0825&mi_00#simulated-2.1&0000)"
                                    R"(#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\video-index0)");
  EXPECT_EQ(devices[1].name, "Integrated Camera");
  EXPECT_EQ(devices[1].exclusionReason, "");
  EXPECT_EQ(devices[1].displayName, R"(@device:pnp:\\?\usb#vid_04f2&pid_b6be&mi_00#simulated-1.5&0000)"
                                    R"(#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\video-index0)");
  for (const devices::CaptureDevice& device : devices) {
    EXPECT_EQ(device.node, "simulated");
  }
}

TEST(SimulatedPcTest, IncludesFixedUsbDevicesWithoutACamera) {
  simulated::SimulatedPc pc;
  std::vector<std::string> ids;
  bool hasFixedWithoutChild = false;
  for (const devices::UsbDevice& device : pc.UsbDevices()) {
    ids.push_back(device.id);
    hasFixedWithoutChild = hasFixedWithoutChild || (!device.isRemovable && device.firstChildId.empty());
  }
  EXPECT_THAT(ids, ElementsAre(HasSubstr("VID_8087"), HasSubstr("VID_046D&PID_0825"),
                               HasSubstr("VID_04F2&PID_B6BE"), HasSubstr("VID_27C6")));
  EXPECT_TRUE(hasFixedWithoutChild);
}

TEST(SimulatedPcTest, OnlyTheBuiltInCameraIsOnAFixedUsbDevice) {
  simulated::SimulatedPc pc;
  EXPECT_THAT(CamerasOnUsb(pc, false), ElementsAre("Integrated Camera"));
  EXPECT_THAT(CamerasOnUsb(pc, true), ElementsAre("USB Camera"));
}

TEST(SimulatedPcTest, EitherCameraCanBeAbsent) {
  simulated::SimulatedPcSettings settings;
  settings.hasBuiltInCamera = false;
  simulated::SimulatedPc plugInOnly(settings);
  EXPECT_THAT(NamesOf(plugInOnly), ElementsAre("USB Camera"));
  EXPECT_THAT(CamerasOnUsb(plugInOnly, false), IsEmpty());
  // Without a built-in camera these calls have no effect.
  plugInOnly.RemoveBuiltInCamera();
  plugInOnly.ReturnBuiltInCamera();
  plugInOnly.Freeze(true);
  EXPECT_THAT(NamesOf(plugInOnly), ElementsAre("USB Camera"));

  settings.hasPlugInCamera = false;
  simulated::SimulatedPc none(settings);
  EXPECT_THAT(NamesOf(none), IsEmpty());
  EXPECT_THAT(none.UsbDevices(), Not(IsEmpty()));

  settings.hasBuiltInCamera = true;
  simulated::SimulatedPc builtInOnly(settings);
  EXPECT_THAT(NamesOf(builtInOnly), ElementsAre("Integrated Camera"));
  EXPECT_THAT(CamerasOnUsb(builtInOnly, false), ElementsAre("Integrated Camera"));
}

TEST(SimulatedPcTest, BuiltInCameraCanBeRemovedAndReturned) {
  simulated::SimulatedPc pc;
  const std::size_t usbDevices = pc.UsbDevices().size();
  pc.RemoveBuiltInCamera();
  EXPECT_THAT(NamesOf(pc), ElementsAre("USB Camera"));
  EXPECT_EQ(pc.UsbDevices().size(), usbDevices - 1);
  EXPECT_THAT(CamerasOnUsb(pc, false), IsEmpty());
  pc.ReturnBuiltInCamera();
  EXPECT_THAT(NamesOf(pc), ElementsAre("USB Camera", "Integrated Camera"));
  EXPECT_THAT(CamerasOnUsb(pc, false), ElementsAre("Integrated Camera"));
}

TEST(SimulatedPcTest, ListedDevicesStayUsableAfterRemovalAndReturn) {
  simulated::SimulatedPc pc(Unpaced());
  const devices::CaptureDevice device = pc.CaptureDevices().at(1);
  pc.RemoveBuiltInCamera();
  const auto source = device.makeSource();
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(StartWith(*source, MakeFormat(graph::kYuyv, 320, 240)), com::kDeviceGone);
  pc.ReturnBuiltInCamera();
  EXPECT_EQ(StartWith(*source, MakeFormat(graph::kYuyv, 320, 240)), S_OK);
}

TEST(SimulatedPcTest, RejectsUnsupportedFormats) {
  for (const graph::VideoFormat& format :
       {MakeFormat(graph::FourCc("NV12"), 640, 480), MakeFormat(graph::kYuyv, 62, 48),
        MakeFormat(graph::kYuyv, 64, 46), MakeFormat(graph::kYuyv, 321, 240),
        MakeFormat(graph::kMjpg, 320, 241), graph::VideoFormat{graph::kYuyv, 320, 240, 0}}) {
    simulated::SimulatedPcSettings settings;
    settings.formats = {format};
    EXPECT_THROW(simulated::SimulatedPc{settings}, std::invalid_argument);
  }
}

}  // namespace
}  // namespace simulated_support
