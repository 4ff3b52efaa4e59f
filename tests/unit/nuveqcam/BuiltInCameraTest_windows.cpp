#include "devices/BuiltInCamera.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "devices/UsbDevices.h"

namespace nuveqcam {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kBuiltIn =
    R"(@device:pnp:\\?\usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\global)";
constexpr const char* kPlugIn =
    R"(@device:pnp:\\?\usb#vid_046d&pid_0825&mi_00#7&2fd3c3a&0&0000#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\global)";
constexpr const char* kSoftware = R"(@device:sw:{860BB310-5D01-11D0-BD3B-00A0C911CE86}\Screen Camera)";
const std::string kBuiltInChild = R"(USB\VID_04F2&PID_B6BE&MI_00\6&1A2B3C&0&0000)";
const std::string kPlugInChild = R"(USB\VID_046D&PID_0825&MI_00\7&2FD3C3A&0&0000)";

constexpr const char* kRemovable = "its USB device is removable";
constexpr const char* kNotFirst = "it is not the first function of its USB device";

TEST(BuiltInCamera, IsTheFirstFunctionOfAFixedUsbDevice) {
  EXPECT_THAT(
      ExclusionReasons({kPlugIn, kBuiltIn, kSoftware}, {{true, kPlugInChild}, {false, kBuiltInChild}}),
      ElementsAre(kRemovable, "", "it is not a USB device"));
}

TEST(BuiltInCamera, IsOnTheFirstFixedUsbDevice) {
  EXPECT_THAT(ExclusionReasons({kPlugIn, kBuiltIn}, {{false, kBuiltInChild}, {false, kPlugInChild}}),
              ElementsAre("another built-in camera comes first", ""));
  EXPECT_THAT(ExclusionReasons({kBuiltIn, kPlugIn}, {{false, kBuiltInChild}, {false, kPlugInChild}}),
              ElementsAre("", "another built-in camera comes first"));
}

TEST(BuiltInCamera, HasExactlyOneSelectedCaptureDevice) {
  EXPECT_THAT(ExclusionReasons({kBuiltIn, kBuiltIn}, {{false, kBuiltInChild}}),
              ElementsAre("", "it is another node of the selected camera"));
  // An infrared camera of the same device.
  constexpr const char* kInfrared =
      R"(@device:pnp:\\?\usb#vid_04f2&pid_b6be&mi_02#6&1a2b3c&0&0002#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\global)";
  EXPECT_THAT(ExclusionReasons({kInfrared, kBuiltIn}, {{false, kBuiltInChild}}), ElementsAre(kNotFirst, ""));
}

TEST(BuiltInCamera, IsNotADeviceWithUnknownStatus) {
  EXPECT_THAT(ExclusionReasons({kBuiltIn}, {{true, kBuiltInChild, false}}),
              ElementsAre("Windows does not report whether its USB device can be removed"));
}

TEST(BuiltInCamera, IsAbsentWithoutAFixedUsbDevice) {
  EXPECT_THAT(ExclusionReasons({kBuiltIn}, {}), ElementsAre(kNotFirst));
  EXPECT_THAT(ExclusionReasons({kBuiltIn}, {{false, ""}}), ElementsAre(kNotFirst));
  EXPECT_THAT(ExclusionReasons({kBuiltIn, ""}, {{true, kBuiltInChild}}),
              ElementsAre(kRemovable, "it is not a USB device"));
  EXPECT_THAT(ExclusionReasons({}, {{false, kBuiltInChild}}), IsEmpty());
}

TEST(BuiltInCamera, IsIdentifiedByItsFirstFunction) {
  EXPECT_TRUE(IsFirstFunction({true, kBuiltInChild}, kBuiltIn));
  EXPECT_TRUE(IsFirstFunction({false, kBuiltInChild}, DevicePathIn(kBuiltIn)));
  EXPECT_FALSE(IsFirstFunction({false, kPlugInChild}, kBuiltIn));
  EXPECT_FALSE(IsFirstFunction({false, ""}, kBuiltIn));
}

TEST(BuiltInCamera, IsAUsbDevice) {
  EXPECT_TRUE(IsUsb(kBuiltIn));
  EXPECT_TRUE(IsUsb(DevicePathIn(kBuiltIn)));
  EXPECT_FALSE(IsUsb(kSoftware));
  EXPECT_FALSE(IsUsb(""));
}

TEST(UsbPlace, IsUnique) {
  UsbDeviceDetails camera;
  camera.id = "USB\\CAMERA";
  camera.location = "Port_#0002.Hub_#0001";
  UsbDeviceDetails radio = camera;
  radio.id = "USB\\RADIO";
  EXPECT_THAT(PlacesOf({camera, radio}), ElementsAre("USB\\CAMERA", "USB\\RADIO"));
  radio.location = "Port_#0003.Hub_#0001";
  EXPECT_THAT(PlacesOf({camera, radio}), ElementsAre("Port_#0002.Hub_#0001", "Port_#0003.Hub_#0001"));
  radio.location.clear();
  EXPECT_THAT(PlacesOf({camera, radio}), ElementsAre("Port_#0002.Hub_#0001", "USB\\RADIO"));
}

TEST(WindowsRemovabilityText, NamesTheDeviceStatus) {
  EXPECT_EQ(RemovabilityText(true, false), "built in: according to its device status in Windows");
  EXPECT_EQ(RemovabilityText(true, true), "removable: according to its device status in Windows");
  EXPECT_EQ(RemovabilityText(false, true), "treated as removable: Windows does not report its device status");
}

TEST(UsbModel, IsVendorAndProduct) {
  EXPECT_EQ(ModelIn(R"(USB\VID_04F2&PID_B6BE\0001)"), "04f2:b6be");
  EXPECT_EQ(ModelIn(kPlugInChild), "046d:0825");
  for (const char* const id : {"", "USB", "VID_", "USB\\VID_04F2", "USB\\VID_04F2&PID_B6B",
                               "USB\\VID_04G2&PID_B6BE", R"(USB\ROOT_HUB30\5&1&0&0)"}) {
    EXPECT_EQ(ModelIn(id), "") << id;
  }
}

TEST(DevicePath, IsTheIdentifyingPartOfADisplayName) {
  EXPECT_EQ(DevicePathIn(kBuiltIn), "usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000");
  EXPECT_EQ(DevicePathIn(kSoftware), "Screen Camera");
  EXPECT_EQ(DevicePathIn(R"(@device:sw:{860BB310-5D01-11D0-BD3B-00A0C911CE86}\usb#a#1#{65e8773d-8f56})"),
            "usb#a#1");
}

TEST(DevicePath, OfANameInAnotherFormIsTheRest) {
  EXPECT_EQ(DevicePathIn("camera"), "camera");
  EXPECT_EQ(DevicePathIn("@device:"), "@device:");
  EXPECT_EQ(DevicePathIn(""), "");
  EXPECT_EQ(DevicePathIn(R"(\\?\)"), "");
  EXPECT_EQ(DevicePathIn("#{"), "");
}

}  // namespace
}  // namespace nuveqcam
