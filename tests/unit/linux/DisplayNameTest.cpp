// Display names of cameras on equal ports of two buses, and of loopback cameras.
#include <algorithm>
#include <utility>

#include "support/linux/LinuxTest.h"

namespace linux_support {
namespace {

using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;

// The same model on the same port of two buses of one controller, as with USB 2 and USB 3 root hubs.
class TwoBusesTest : public LinuxTest {
 protected:
  static void AddTo(FakeSystemCalls& pc, int bus, const std::string& removable) {
    const std::string name = std::to_string(bus) + "-5";
    pc.Tree().AddUsb({name, "04f2", "b6be", removable});
    pc.Tree().AddVideoOfUsb(bus, name + ":1.0", "Camera", 0);
    pc.AddDevice(bus);
  }
  // The display names, then the ids of the USB devices.
  static std::vector<std::string> AllNames() {
    std::vector<std::string> all = DisplayNames();
    for (const EnumeratedUsbDevice& device : ListUsbDevices()) {
      all.push_back(device.id);
      all.push_back(device.childId);
    }
    return all;
  }
};

using LoopbackCameraTest = LinuxTest;

TEST_F(TwoBusesTest, DevicesOnTwoBusesOfAControllerHaveDistinctNames) {
  AddTo(kernel, 1, "removable");
  AddTo(kernel, 2, "removable");
  std::vector<std::string> names = AllNames();
  EXPECT_THAT(names, SizeIs(6));
  EXPECT_EQ(std::count_if(names.begin(), names.end(),
                          [](const std::string& name) { return name.find("+1-5&") != std::string::npos; }),
            3)
      << "the three names of the second bus";
  std::sort(names.begin(), names.end());
  EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
}

TEST_F(TwoBusesTest, NamesDoNotDependOnBusNumbers) {
  AddTo(kernel, 1, "removable");
  AddTo(kernel, 2, "removable");
  const std::vector<std::string> first = AllNames();
  FakeSystemCalls found;  // the buses in another order
  v4l2::SetSystemCallsForTesting(&found);
  AddTo(found, 2, "removable");
  AddTo(found, 1, "removable");
  EXPECT_EQ(AllNames(), first);
  FakeSystemCalls renumbered;  // bus numbers of different length
  v4l2::SetSystemCallsForTesting(&renumbered);
  AddTo(renumbered, 10, "removable");
  AddTo(renumbered, 9, "removable");
  EXPECT_EQ(AllNames(), first);
  v4l2::SetSystemCallsForTesting(&kernel);
}

TEST_F(TwoBusesTest, FixedCameraOfTwoIsBuiltIn) {
  for (const auto& [lower, higher] : {std::pair{1, 2}, std::pair{9, 10}}) {
    FakeSystemCalls pc;
    v4l2::SetSystemCallsForTesting(&pc);
    AddTo(pc, lower, "removable");
    AddTo(pc, higher, "fixed");
    EXPECT_THAT(BuiltInCameraName(), HasSubstr("+1-5&"));
    pc.Tree().SetUsbAttribute(std::to_string(lower) + "-5", "removable", "fixed");
    pc.Tree().SetUsbAttribute(std::to_string(higher) + "-5", "removable", "removable");
    EXPECT_NE(BuiltInCameraName(), "");
    EXPECT_THAT(BuiltInCameraName(), Not(HasSubstr("+1-5&")));
  }
  v4l2::SetSystemCallsForTesting(&kernel);
}

TEST_F(LoopbackCameraTest, HaveDistinctNames) {
  for (const int number : {10, 1}) {
    kernel.Tree().AddVirtualVideo(number, "Loopback");
    kernel.AddDevice(number);
  }
  const std::vector<std::string> names = DisplayNames();
  ASSERT_THAT(names, SizeIs(2));
  EXPECT_NE(names[0], names[1]);
  EXPECT_THAT(names, Each(Not(HasSubstr("usb#"))));
  EXPECT_EQ(DisplayNames(), names);
  EXPECT_EQ(BuiltInCameraName(), "");
  FakeSystemCalls other;  // created in another order
  v4l2::SetSystemCallsForTesting(&other);
  for (const int number : {1, 10}) {
    other.Tree().AddVirtualVideo(number, "Loopback");
    other.AddDevice(number);
  }
  EXPECT_EQ(DisplayNames(), names);
  v4l2::SetSystemCallsForTesting(&kernel);
}

TEST_F(LoopbackCameraTest, DoNotHideTheBuiltInCamera) {
  kernel.Tree().AddVirtualVideo(7, "Loopback");
  kernel.AddDevice(7);
  AddLaptopCamera();
  EXPECT_THAT(DisplayNames(), SizeIs(2));
  EXPECT_THAT(BuiltInCameraName(), HasSubstr("usb#vid_04f2&pid_b6be&mi_00#"));
}

}  // namespace
}  // namespace linux_support
