// The details of USB devices and video nodes: removability with its source, rejection reasons.
#include <cerrno>

#include "support/linux/LinuxTest.h"

namespace linux_support {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class DeviceDetailsTest : public LinuxTest {
 protected:
  static devices::UsbDetails DetailsOf(const std::string& place) {
    for (devices::UsbDetails& details : devices::CurrentDeviceProvider()->DescribeUsbDevices()) {
      if (details.place == place) {
        return details;
      }
    }
    ADD_FAILURE() << place << " is not described";
    return {};
  }
  void Add(const std::string& name, const std::optional<std::string>& removable,
           const std::optional<std::string>& connectType = std::nullopt) {
    UsbNode node{name};
    node.removable = removable;
    node.connectType = connectType;
    kernel.Tree().AddUsb(node);
  }
  static void ExpectRemovability(const std::string& place, bool isRemovable,
                                 devices::RemovabilitySource source, const std::string& hub = "") {
    const devices::UsbDetails details = DetailsOf(place);
    EXPECT_EQ(details.removability.isRemovable, isRemovable) << place;
    EXPECT_EQ(static_cast<int>(details.removability.source), static_cast<int>(source)) << place;
    EXPECT_EQ(details.removability.hub, hub) << place;
  }
};

TEST_F(DeviceDetailsTest, RemovabilityComesFromTheFirmware) {
  Add("1-1", "fixed", "hardwired");
  Add("1-2", "fixed", "not used");
  Add("1-3", "removable", "hotplug");
  Add("1-4", "removable", "hotplug");
  Add("1-4.2", "removable", "hotplug");
  ExpectRemovability("1-1", false, devices::RemovabilitySource::kFirmware);
  ExpectRemovability("1-2", false, devices::RemovabilitySource::kFirmware);
  ExpectRemovability("1-3", true, devices::RemovabilitySource::kFirmware);
  ExpectRemovability("1-4.2", true, devices::RemovabilitySource::kFirmware);
  EXPECT_EQ(DetailsOf("1-2").removability.connectType, "not used");
  EXPECT_EQ(DetailsOf("1-4.2").removability.connectType, "hotplug");
  EXPECT_EQ(DetailsOf("1-3").removability.attribute, "removable");
  EXPECT_FALSE(DetailsOf("1-3").removability.isHubRemovable);
}

TEST_F(DeviceDetailsTest, RemovabilityComesFromTheHubIfTheFirmwareIsSilent) {
  Add("1-8", "fixed", "hardwired");
  Add("1-8.1", "fixed", "unknown");
  Add("1-8.2", "removable", "unknown");
  Add("1-9", "fixed", "unknown");
  ExpectRemovability("1-8.1", false, devices::RemovabilitySource::kHub, "1-8");
  ExpectRemovability("1-8.2", true, devices::RemovabilitySource::kHub, "1-8");
  ExpectRemovability("1-9", false, devices::RemovabilitySource::kHub, "usb1");
  EXPECT_EQ(DetailsOf("1-8.1").removability.connectType, "unknown");
}

TEST_F(DeviceDetailsTest, UndeclaredAndInvalidRemovabilityCountsAsRemovable) {
  Add("1-1", "unknown", "unknown");
  Add("1-2", "unknown");
  Add("1-3", std::nullopt, "unknown");
  Add("1-4", "");
  Add("1-5", "perhaps", "hardwired");
  ExpectRemovability("1-1", true, devices::RemovabilitySource::kUndeclared);
  ExpectRemovability("1-2", true, devices::RemovabilitySource::kUndeclared);
  ExpectRemovability("1-3", true, devices::RemovabilitySource::kAttributeMissing);
  ExpectRemovability("1-4", true, devices::RemovabilitySource::kAttributeMissing);
  ExpectRemovability("1-5", true, devices::RemovabilitySource::kAttributeMissing);
}

TEST_F(DeviceDetailsTest, SourceIsTheAttributeWithoutAConnectType) {
  Add("1-8", "fixed", "hardwired");
  Add("1-8.3", "fixed");
  Add("1-9", "removable");
  ExpectRemovability("1-8.3", false, devices::RemovabilitySource::kAttribute);
  ExpectRemovability("1-9", true, devices::RemovabilitySource::kAttribute);
  EXPECT_EQ(DetailsOf("1-8.3").removability.connectType, "");
}

TEST_F(DeviceDetailsTest, SourceIsTheAttributeIfItIsUnknown) {
  Add("1-1", "unknown", "hardwired");
  Add("1-2", "unknown", "hotplug");
  Add("1-3", "unknown", "not used");
  ExpectRemovability("1-1", true, devices::RemovabilitySource::kAttribute);
  ExpectRemovability("1-2", true, devices::RemovabilitySource::kAttribute);
  ExpectRemovability("1-3", true, devices::RemovabilitySource::kAttribute);
  EXPECT_EQ(DetailsOf("1-1").removability.attribute, "unknown");
}

TEST_F(DeviceDetailsTest, SourceIsTheAttributeIfItContradictsTheFirmware) {
  Add("1-1", "fixed", "hotplug");
  Add("1-2", "removable", "hardwired");
  ExpectRemovability("1-1", false, devices::RemovabilitySource::kAttribute);
  ExpectRemovability("1-2", true, devices::RemovabilitySource::kAttribute);
}

TEST_F(DeviceDetailsTest, DevicesBehindARemovableHubAreRemovable) {
  Add("1-7", "removable", "hotplug");
  Add("1-7.1", "fixed", "hardwired");
  Add("1-7.1.4", "fixed", "unknown");
  Add("1-7.2", "unknown");
  Add("1-7.2.3", "fixed", "hardwired");
  Add("1-6", std::nullopt);
  Add("1-6.1", "fixed");
  ExpectRemovability("1-7.1", true, devices::RemovabilitySource::kParentHub, "1-7");
  ExpectRemovability("1-7.1.4", true, devices::RemovabilitySource::kParentHub, "1-7");
  ExpectRemovability("1-7.2.3", true, devices::RemovabilitySource::kParentHub, "1-7.2");
  ExpectRemovability("1-6.1", true, devices::RemovabilitySource::kParentHub, "1-6");
  EXPECT_TRUE(DetailsOf("1-7.1.4").removability.isHubRemovable);
  EXPECT_FALSE(DetailsOf("1-7.2.3").removability.isHubRemovable);
  EXPECT_FALSE(DetailsOf("1-6.1").removability.isHubRemovable);
}

TEST_F(DeviceDetailsTest, AgreeWithTheDeviceListInOrder) {
  Add("1-10", "fixed", "hardwired");
  Add("1-9", "removable");
  Add("1-9.1", "fixed");
  Add("2-1", "unknown");
  kernel.Tree().AddUsb({"1-3", "", "", "fixed"});
  kernel.Tree().AddDanglingUsb("1-4");
  const std::vector<devices::UsbDevice> devices = devices::CurrentDeviceProvider()->UsbDevices();
  const std::vector<devices::UsbDetails> details = devices::CurrentDeviceProvider()->DescribeUsbDevices();
  ASSERT_EQ(devices.size(), 4U);
  ASSERT_EQ(details.size(), devices.size());
  for (std::size_t i = 0; i < devices.size(); ++i) {
    EXPECT_EQ(details[i].id, devices[i].id);
    EXPECT_EQ(details[i].removability.isRemovable, devices[i].isRemovable);
    EXPECT_EQ(details[i].firstChildId, devices[i].firstChildId);
  }
}

TEST_F(DeviceDetailsTest, DescribeTheKindOfDevice) {
  kernel.Tree().AddUsb({"1-5", "04f2", "b6be"});
  kernel.Tree().SetUsbAttribute("1-5", "product", "Integrated Camera");
  kernel.Tree().AddUsb({"1-8", "05e3", "0610", "removable", {0}});
  kernel.Tree().SetUsbAttribute("1-8", "product", std::nullopt);
  kernel.Tree().SetUsbAttribute("1-8", "bDeviceClass", "09");
  kernel.Tree().SetUsbAttribute("1-8:1.0", "bInterfaceClass", "09");
  const devices::UsbDetails camera = DetailsOf("1-5");
  EXPECT_EQ(camera.name, "Integrated Camera");
  EXPECT_EQ(camera.model, "04f2:b6be");
  EXPECT_FALSE(camera.isHub);
  EXPECT_TRUE(camera.hasVideo);
  const devices::UsbDetails hub = DetailsOf("1-8");
  EXPECT_EQ(hub.name, "");
  EXPECT_TRUE(hub.isHub);
  EXPECT_FALSE(hub.hasVideo);
}

TEST_F(DeviceDetailsTest, GiveTheRejectionReasonOfAVideoNode) {
  AddLaptopCamera();
  const std::vector<std::pair<std::uint32_t, std::string>> kinds{
      {V4L2_CAP_VIDEO_OUTPUT | V4L2_CAP_STREAMING, "video output device"},
      {V4L2_CAP_VIDEO_M2M | V4L2_CAP_STREAMING, "memory-to-memory device"},
      {V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_READWRITE, "cannot stream into memory"},
      {V4L2_CAP_VIDEO_CAPTURE_MPLANE | V4L2_CAP_STREAMING, "multi-planar"},
      {V4L2_CAP_STREAMING, "delivers no video"}};
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    VideoDeviceSettings settings;
    settings.nodeCapabilities = kinds[i].first;
    const int number = static_cast<int>(i) + 2;
    kernel.Tree().AddVideoOf(number, "platform/codec.0", "Codec", static_cast<int>(i));
    kernel.AddDevice(number, std::move(settings));
  }
  const std::vector<devices::VideoNodeDetails> nodes = devices::CurrentDeviceProvider()->DescribeVideoNodes();
  ASSERT_THAT(nodes, SizeIs(7));
  EXPECT_EQ(nodes[0].node, (kernel.DevRoot() / "video0").string());
  EXPECT_EQ(nodes[0].name, "Integrated Camera");
  EXPECT_EQ(nodes[0].rejectionReason, "");
  EXPECT_EQ(nodes[0].openError, 0);
  EXPECT_EQ(nodes[0].usbPlace, "1-5");
  EXPECT_THAT(nodes[1].rejectionReason, HasSubstr("metadata"));
  EXPECT_EQ(nodes[1].usbPlace, "1-5");
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    EXPECT_THAT(nodes[i + 2].rejectionReason, HasSubstr(kinds[i].second));
    EXPECT_EQ(nodes[i + 2].usbPlace, "");
  }
  EXPECT_THAT(devices::CurrentDeviceProvider()->CaptureDevices(), SizeIs(1));
}

TEST_F(DeviceDetailsTest, ListVideoNodesByNumber) {
  for (const int number : {10, 9, 2}) {
    kernel.Tree().AddVideoOf(number, "platform/vivid.0", "vivid", number);
    kernel.AddDevice(number);
  }
  std::vector<std::string> names;
  for (const devices::VideoNodeDetails& node : devices::CurrentDeviceProvider()->DescribeVideoNodes()) {
    names.push_back(std::filesystem::path(node.node).filename().string());
  }
  EXPECT_THAT(names, ::testing::ElementsAre("video2", "video9", "video10"));
}

TEST_F(DeviceDetailsTest, NameTheFormatsOfARejectedNode) {
  const auto rejectionReason = [&](const std::vector<std::uint32_t>& pixelFormats) {
    VideoDeviceSettings settings;
    settings.formats.clear();
    for (const std::uint32_t pixelFormat : pixelFormats) {
      settings.formats.push_back({pixelFormat, {Discrete(640, 360, {15})}});
    }
    AddPluggedInCamera("1-5", 0, std::move(settings));
    const std::vector<devices::VideoNodeDetails> nodes =
        devices::CurrentDeviceProvider()->DescribeVideoNodes();
    EXPECT_THAT(nodes, SizeIs(1));
    kernel.Unplug("1-5", {0});
    return nodes.empty() ? std::string() : nodes.front().rejectionReason;
  };
  EXPECT_EQ(rejectionReason({V4L2_PIX_FMT_GREY}), "it delivers no format that the library can use (GREY)");
  EXPECT_EQ(rejectionReason({V4L2_PIX_FMT_Y16, V4L2_PIX_FMT_H264}),
            "it delivers no format that the library can use (Y16, H264)");
  EXPECT_EQ(rejectionReason({V4L2_PIX_FMT_GREY, V4L2_PIX_FMT_NV12}), "");
  EXPECT_EQ(rejectionReason({}), "it delivers no format that the library can use (it lists none)");
  EXPECT_EQ(rejectionReason({0x1B5B0A41}), "it delivers no format that the library can use (A?[?)");
  EXPECT_EQ(
      rejectionReason(std::vector<std::uint32_t>(8, V4L2_PIX_FMT_GREY)),
      "it delivers no format that the library can use (GREY, GREY, GREY, GREY, GREY, GREY, GREY, GREY)");
  EXPECT_EQ(rejectionReason(std::vector<std::uint32_t>(9, V4L2_PIX_FMT_GREY)),
            "it delivers no format that the library can use (GREY, GREY, GREY, GREY, GREY, GREY, GREY, GREY, "
            "...)");
}

TEST_F(DeviceDetailsTest, ReportTheOpenErrorOfANode) {
  AddLaptopCamera();
  std::vector<devices::VideoNodeDetails> nodes;
  for (const int error : {EACCES, EBUSY, ENOMEM}) {
    kernel.Fail(kOpenCall, error);
    nodes = devices::CurrentDeviceProvider()->DescribeVideoNodes();
    ASSERT_THAT(nodes, SizeIs(2));
    EXPECT_EQ(nodes[0].openError, error);
    EXPECT_EQ(nodes[0].rejectionReason, "");
    EXPECT_EQ(nodes[1].openError, error);
    EXPECT_THAT(nodes[1].rejectionReason, HasSubstr("not its camera's first node"));
  }
  for (const int error : {ENOENT, ENODEV, ENXIO}) {
    kernel.Fail(kOpenCall, error);
    nodes = devices::CurrentDeviceProvider()->DescribeVideoNodes();
    ASSERT_THAT(nodes, SizeIs(2));
    EXPECT_EQ(nodes[0].openError, error);
    EXPECT_THAT(nodes[0].rejectionReason, HasSubstr("does not exist"));
    EXPECT_THAT(devices::CurrentDeviceProvider()->CaptureDevices(), IsEmpty());
  }
  kernel.FailNothing();
  kernel.Fail(VIDIOC_QUERYCAP, EIO);
  nodes = devices::CurrentDeviceProvider()->DescribeVideoNodes();
  ASSERT_THAT(nodes, SizeIs(2));
  EXPECT_EQ(nodes[0].openError, 0);
  EXPECT_THAT(nodes[0].rejectionReason, HasSubstr("does not support VIDIOC_QUERYCAP"));
}

TEST_F(DeviceDetailsTest, DoNotChangeTheStateOfACamera) {
  AddLaptopCamera();
  const std::vector<unsigned long> modifying{VIDIOC_REQBUFS, VIDIOC_S_FMT, VIDIOC_S_PARM, VIDIOC_STREAMON,
                                             VIDIOC_STREAMOFF};
  EXPECT_THAT(devices::CurrentDeviceProvider()->DescribeVideoNodes(), SizeIs(2));
  for (const unsigned long call : modifying) {
    EXPECT_EQ(kernel.CallsOf(call), 0U) << call;
  }
}

}  // namespace
}  // namespace linux_support
