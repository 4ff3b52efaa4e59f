#include "devices/BuiltInCamera.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "devices/UsbDevices.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kLid =
    R"(@device:pnp:\\?\usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\global)";
constexpr const char* kStick =
    R"(@device:pnp:\\?\usb#vid_046d&pid_0825&mi_00#7&2fd3c3a&0&0000#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\global)";
constexpr const char* kSoftware = R"(@device:sw:{860BB310-5D01-11D0-BD3B-00A0C911CE86}\Screen Camera)";
const std::string kLidChild = R"(USB\VID_04F2&PID_B6BE&MI_00\6&1A2B3C&0&0000)";
const std::string kStickChild = R"(USB\VID_046D&PID_0825&MI_00\7&2FD3C3A&0&0000)";

constexpr const char* kRemovable = "it is plugged in: its USB device can be removed";
constexpr const char* kNotFirst = "it is not the first function of its USB device";

TEST(BuiltIn, IsTheFirstFunctionOfAUsbDeviceThatStays) {
  EXPECT_THAT(WhyNotBuiltIn({kStick, kLid, kSoftware}, {{true, kStickChild}, {false, kLidChild}}),
              ElementsAre(kRemovable, "", "it is not a USB device"));
}

TEST(BuiltIn, IsTheOneWhoseUsbDeviceComesFirst) {
  EXPECT_THAT(WhyNotBuiltIn({kStick, kLid}, {{false, kLidChild}, {false, kStickChild}}),
              ElementsAre("another built-in camera comes first", ""));
  EXPECT_THAT(WhyNotBuiltIn({kLid, kStick}, {{false, kLidChild}, {false, kStickChild}}),
              ElementsAre("", "another built-in camera comes first"));
}

TEST(BuiltIn, HasOneCaptureDeviceThatIsTaken) {
  EXPECT_THAT(WhyNotBuiltIn({kLid, kLid}, {{false, kLidChild}}),
              ElementsAre("", "it is another node of the camera that is taken"));
  // An infrared camera of the same device.
  constexpr const char* kInfrared =
      R"(@device:pnp:\\?\usb#vid_04f2&pid_b6be&mi_02#6&1a2b3c&0&0002#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\global)";
  EXPECT_THAT(WhyNotBuiltIn({kInfrared, kLid}, {{false, kLidChild}}), ElementsAre(kNotFirst, ""));
}

TEST(BuiltIn, IsNotOneWhoseStatusIsNotKnown) {
  EXPECT_THAT(WhyNotBuiltIn({kLid}, {{true, kLidChild, false}}),
              ElementsAre("Windows does not tell whether its USB device can be removed"));
}

TEST(BuiltIn, IsNoneWithoutSuchAUsbDevice) {
  EXPECT_THAT(WhyNotBuiltIn({kLid}, {}), ElementsAre(kNotFirst));
  EXPECT_THAT(WhyNotBuiltIn({kLid}, {{false, ""}}), ElementsAre(kNotFirst));
  EXPECT_THAT(WhyNotBuiltIn({kLid, ""}, {{true, kLidChild}}),
              ElementsAre(kRemovable, "it is not a USB device"));
  EXPECT_THAT(WhyNotBuiltIn({}, {{false, kLidChild}}), IsEmpty());
}

TEST(BuiltIn, IsRecognisedByItsFirstFunction) {
  EXPECT_TRUE(IsFirstFunction({true, kLidChild}, kLid));
  EXPECT_TRUE(IsFirstFunction({false, kLidChild}, PlaceIn(kLid)));
  EXPECT_FALSE(IsFirstFunction({false, kStickChild}, kLid));
  EXPECT_FALSE(IsFirstFunction({false, ""}, kLid));
}

TEST(BuiltIn, IsOnUsb) {
  EXPECT_TRUE(IsUsb(kLid));
  EXPECT_TRUE(IsUsb(PlaceIn(kLid)));
  EXPECT_FALSE(IsUsb(kSoftware));
  EXPECT_FALSE(IsUsb(""));
}

TEST(UsbPlace, TellsDevicesApart) {
  DescribedUsbDevice camera;
  camera.id = "USB\\CAMERA";
  camera.location = "Port_#0002.Hub_#0001";
  DescribedUsbDevice radio = camera;
  radio.id = "USB\\RADIO";
  EXPECT_THAT(PlacesOf({camera, radio}), ElementsAre("USB\\CAMERA", "USB\\RADIO"));
  radio.location = "Port_#0003.Hub_#0001";
  EXPECT_THAT(PlacesOf({camera, radio}), ElementsAre("Port_#0002.Hub_#0001", "Port_#0003.Hub_#0001"));
  radio.location.clear();
  EXPECT_THAT(PlacesOf({camera, radio}), ElementsAre("Port_#0002.Hub_#0001", "USB\\RADIO"));
}

TEST(UsbVerdict, IsOfTheDeviceStatus) {
  EXPECT_EQ(VerdictText(true, false), "built in: Windows says (device status) that it cannot be removed");
  EXPECT_EQ(VerdictText(true, true), "can be removed: Windows says (device status) that it can be");
  EXPECT_EQ(VerdictText(false, true), "counts as removable: Windows does not tell its device status");
}

TEST(Model, IsVendorAndProduct) {
  EXPECT_EQ(ModelIn(R"(USB\VID_04F2&PID_B6BE\0001)"), "04f2:b6be");
  EXPECT_EQ(ModelIn(kStickChild), "046d:0825");
  for (const char* const id : {"", "USB", "VID_", "USB\\VID_04F2", "USB\\VID_04F2&PID_B6B",
                               "USB\\VID_04G2&PID_B6BE", R"(USB\ROOT_HUB30\5&1&0&0)"}) {
    EXPECT_EQ(ModelIn(id), "") << id;
  }
}

TEST(Place, IsWhatTellsDevicesApart) {
  EXPECT_EQ(PlaceIn(kLid), "usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000");
  EXPECT_EQ(PlaceIn(kSoftware), "Screen Camera");
  EXPECT_EQ(PlaceIn(R"(@device:sw:{860BB310-5D01-11D0-BD3B-00A0C911CE86}\usb#a#1#{65e8773d-8f56})"),
            "usb#a#1");
}

TEST(Place, IsWhatIsLeftOfANameOfAnotherForm) {
  EXPECT_EQ(PlaceIn("camera"), "camera");
  EXPECT_EQ(PlaceIn("@device:"), "@device:");
  EXPECT_EQ(PlaceIn(""), "");
  EXPECT_EQ(PlaceIn(R"(\\?\)"), "");
  EXPECT_EQ(PlaceIn("#{"), "");
}

}  // namespace
