// SetupAPI and configuration manager functions with invalid arguments and small buffers.
#include <array>
#include <cstring>
#include <string>
#include <utility>

#include "support/linux/LinuxTest.h"

namespace linux_support {
namespace {

constexpr DWORD kFlags = DIGCF_PRESENT | DIGCF_PROFILE | DIGCF_DEVICEINTERFACE;
constexpr GUID kOtherClass = FourCcSubtype(1);
constexpr DWORD kDetailSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);

// Values of Windows, as literals.
constexpr GUID kUsbSetupClass{0x36FC9E60, 0xC465, 0x11CF, {0x80, 0x56, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};
constexpr DWORD kActiveInterface = 1;
constexpr CONFIGRET kInvalidPointer = 0x03;
constexpr CONFIGRET kBufferSmall = 0x1A;

class SetupApiTest : public LinuxTest {
 protected:
  void SetUp() override {
    LinuxTest::SetUp();
    kernel.Tree().AddUsb({"1-5"});
    kernel.Tree().AddUsb({"1-6", "046d", "0825", "removable"});
    set = SetupDiGetClassDevsW(&GUID_DEVINTERFACE_USB_DEVICE, nullptr, nullptr, kFlags);
    ASSERT_NE(set, INVALID_HANDLE_VALUE);
    data.cbSize = sizeof(data);
    device.cbSize = sizeof(device);
  }
  void TearDown() override {
    EXPECT_EQ(SetupDiDestroyDeviceInfoList(set), TRUE);
    LinuxTest::TearDown();
  }

  BOOL EnumInterface(HDEVINFO of, DWORD index) {
    return SetupDiEnumDeviceInterfaces(of, nullptr, &GUID_DEVINTERFACE_USB_DEVICE, index, &data);
  }
  std::vector<HDEVINFO> InvalidSets() {
    HDEVINFO destroyed = SetupDiGetClassDevsW(&GUID_DEVINTERFACE_USB_DEVICE, nullptr, nullptr, kFlags);
    EXPECT_EQ(SetupDiDestroyDeviceInfoList(destroyed), TRUE);
    return {nullptr, INVALID_HANDLE_VALUE, &m_unrelated, destroyed};
  }

  HDEVINFO set = nullptr;
  SP_DEVICE_INTERFACE_DATA data{};
  SP_DEVINFO_DATA device{};

 private:
  std::array<std::uint64_t, 64> m_unrelated{};
};

using DeviceInfoSetTest = SetupApiTest;
using DeviceNodeTest = SetupApiTest;

TEST_F(DeviceInfoSetTest, EnumerationEndsAfterTheLastDevice) {
  EXPECT_EQ(EnumInterface(set, 0), TRUE);
  EXPECT_TRUE(data.InterfaceClassGuid == GUID_DEVINTERFACE_USB_DEVICE);
  EXPECT_EQ(data.Flags, kActiveInterface);
  EXPECT_EQ(EnumInterface(set, 1), TRUE);
  EXPECT_EQ(EnumInterface(set, 2), FALSE);
  EXPECT_EQ(EnumInterface(set, 0xFFFFFFFF), FALSE);
  EXPECT_EQ(SetupDiEnumDeviceInfo(set, 1, &device), TRUE);
  EXPECT_EQ(SetupDiEnumDeviceInfo(set, 2, &device), FALSE);
  EXPECT_EQ(SetupDiEnumDeviceInfo(set, 0xFFFFFFFF, &device), FALSE);
}

TEST_F(DeviceInfoSetTest, IsASnapshot) {
  kernel.Tree().RemoveUsb("1-6");
  EXPECT_EQ(EnumInterface(set, 1), TRUE);
  EXPECT_EQ(SetupDiEnumDeviceInfo(set, 1, &device), TRUE);
  EXPECT_EQ(ListUsbDevices().size(), 1U);
}

TEST_F(DeviceInfoSetTest, IsEmptyForAnotherClassAndForNone) {
  for (const GUID* const classId : {&kOtherClass, static_cast<const GUID*>(nullptr)}) {
    EXPECT_EQ(SetupDiEnumDeviceInterfaces(set, nullptr, classId, 0, &data), FALSE);
    HDEVINFO other = SetupDiGetClassDevsW(classId, nullptr, nullptr, kFlags);
    EXPECT_EQ(SetupDiEnumDeviceInterfaces(other, nullptr, classId, 0, &data), FALSE);
    EXPECT_EQ(SetupDiEnumDeviceInfo(other, 0, &device), FALSE);
    if (other != INVALID_HANDLE_VALUE) {
      EXPECT_EQ(SetupDiDestroyDeviceInfoList(other), TRUE);
    }
  }
}

TEST_F(DeviceInfoSetTest, InvalidHandlesAreRejected) {
  alignas(8) std::array<unsigned char, 1024> buffer{};
  auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.data());
  detail->cbSize = kDetailSize;
  ASSERT_EQ(EnumInterface(set, 0), TRUE);
  for (HDEVINFO none : InvalidSets()) {
    EXPECT_EQ(SetupDiGetDeviceInterfaceDetailW(none, &data, detail, 1024, nullptr, nullptr), FALSE);
    EXPECT_EQ(EnumInterface(none, 0), FALSE);
    EXPECT_EQ(SetupDiEnumDeviceInfo(none, 0, &device), FALSE);
    EXPECT_EQ(SetupDiDestroyDeviceInfoList(none), FALSE);
  }
}

TEST_F(DeviceInfoSetTest, RejectsNullAndStructuresOfTheWrongSize) {
  data.cbSize = 0;
  EXPECT_EQ(EnumInterface(set, 0), FALSE);
  data.cbSize = sizeof(data) + 1;
  EXPECT_EQ(EnumInterface(set, 0), FALSE);
  EXPECT_EQ(SetupDiEnumDeviceInterfaces(set, nullptr, &GUID_DEVINTERFACE_USB_DEVICE, 0, nullptr), FALSE);
  device.cbSize = sizeof(device) - 1;
  EXPECT_EQ(SetupDiEnumDeviceInfo(set, 0, &device), FALSE);
  EXPECT_EQ(SetupDiEnumDeviceInfo(set, 0, nullptr), FALSE);
}

TEST_F(DeviceInfoSetTest, ReportsTheRequiredSizeAndStaysWithinTheBuffer) {
  ASSERT_EQ(EnumInterface(set, 0), TRUE);
  DWORD required = 0;
  EXPECT_EQ(SetupDiGetDeviceInterfaceDetailW(set, &data, nullptr, 0, &required, nullptr), FALSE);
  ASSERT_GT(required, kDetailSize);
  constexpr unsigned char kUntouched = 0xA5;
  for (DWORD size = kDetailSize; size <= required; ++size) {
    alignas(8) std::array<unsigned char, 2048> buffer{};
    buffer.fill(kUntouched);
    auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.data());
    detail->cbSize = kDetailSize;
    EXPECT_EQ(SetupDiGetDeviceInterfaceDetailW(set, &data, detail, size, nullptr, &device), size == required)
        << size;
    for (std::size_t i = size; i < buffer.size(); ++i) {
      ASSERT_EQ(buffer.at(i), kUntouched) << "byte " << i << " with size " << size;
    }
  }
}

TEST_F(DeviceInfoSetTest, PathsAreTerminatedAndMatchTheDevice) {
  ASSERT_EQ(EnumInterface(set, 1), TRUE);
  alignas(8) std::array<unsigned char, 2048> buffer{};
  buffer.fill(0xFF);
  auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.data());
  detail->cbSize = kDetailSize;
  DWORD required = 0;
  ASSERT_EQ(SetupDiGetDeviceInterfaceDetailW(set, &data, detail, 2048, &required, &device), TRUE);
  const std::wstring path = detail->DevicePath;
  EXPECT_EQ(path, LR"(\\?\usb#vid_046d&pid_0825#0000:00:14.0-6&0000#{a5dcbf10-6530-11d2-901f-00c04fb951ed})");
  EXPECT_EQ(required,
            offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath) + (path.size() + 1) * sizeof(WCHAR));
  SP_DEVINFO_DATA numbered{};
  numbered.cbSize = sizeof(numbered);
  ASSERT_EQ(SetupDiEnumDeviceInfo(set, 1, &numbered), TRUE);
  EXPECT_EQ(device.DevInst, numbered.DevInst);
  EXPECT_TRUE(device.ClassGuid == kUsbSetupClass);
}

TEST_F(DeviceInfoSetTest, RejectsDetailsOfTheWrongSize) {
  ASSERT_EQ(EnumInterface(set, 0), TRUE);
  alignas(8) std::array<unsigned char, 2048> buffer{};
  auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.data());
  detail->cbSize = kDetailSize + 4;
  EXPECT_EQ(SetupDiGetDeviceInterfaceDetailW(set, &data, detail, 2048, nullptr, &device), FALSE);
  detail->cbSize = kDetailSize;
  EXPECT_EQ(SetupDiGetDeviceInterfaceDetailW(set, nullptr, detail, 2048, nullptr, &device), FALSE);
  SP_DEVICE_INTERFACE_DATA empty{};
  EXPECT_EQ(SetupDiGetDeviceInterfaceDetailW(set, &empty, detail, 2048, nullptr, &device), FALSE);
  device.cbSize = sizeof(device) + 1;
  EXPECT_EQ(SetupDiGetDeviceInterfaceDetailW(set, &data, detail, 2048, nullptr, &device), FALSE);
  EXPECT_EQ(SetupDiGetDeviceInterfaceDetailW(set, &data, detail, 2048, nullptr, nullptr), TRUE);
}

TEST_F(DeviceNodeTest, InvalidNodesAreRejected) {
  for (const DEVINST none : {0U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    ULONG status = 0;
    ULONG problem = 0;
    DEVINST child = 0;
    std::array<char, 256> id{};
    EXPECT_EQ(CM_Get_DevNode_Status(&status, &problem, none, 0), CR_NO_SUCH_DEVNODE);
    EXPECT_EQ(CM_Get_Child(&child, none, 0), CR_NO_SUCH_DEVNODE);
    EXPECT_EQ(CM_Get_Device_IDA(none, id.data(), 256, 0), CR_NO_SUCH_DEVNODE);
  }
}

TEST_F(DeviceNodeTest, StatusIsRemovableOrEmpty) {
  for (const auto& [index, expected] : {std::pair{0U, ULONG{0}}, std::pair{1U, DN_REMOVABLE}}) {
    ULONG status = 0xFFFFFFFF;
    ULONG problem = 0xFFFFFFFF;
    ASSERT_EQ(SetupDiEnumDeviceInfo(set, index, &device), TRUE);
    EXPECT_EQ(CM_Get_DevNode_Status(&status, &problem, device.DevInst, 0), CR_SUCCESS);
    EXPECT_EQ(status, expected);
    EXPECT_EQ(problem, 0U);
  }
}

// Only the removability of USB devices is known.
TEST_F(DeviceNodeTest, InterfacesCountAsRemovable) {
  ASSERT_EQ(SetupDiEnumDeviceInfo(set, 0, &device), TRUE);
  DEVINST child = 0;
  ASSERT_EQ(CM_Get_Child(&child, device.DevInst, 0), CR_SUCCESS);
  ULONG status = 0;
  ULONG problem = 0;
  EXPECT_EQ(CM_Get_DevNode_Status(&status, &problem, child, 0), CR_SUCCESS);
  EXPECT_EQ(status, DN_REMOVABLE);
}

TEST_F(DeviceNodeTest, GetChildFailsWithoutAChild) {
  kernel.Tree().AddUsb({"1-7", "0bda", "0129", "fixed", {}});
  HDEVINFO now = SetupDiGetClassDevsW(&GUID_DEVINTERFACE_USB_DEVICE, nullptr, nullptr, kFlags);
  ASSERT_EQ(SetupDiEnumDeviceInfo(now, 2, &device), TRUE);
  DEVINST child = 0;
  EXPECT_EQ(CM_Get_Child(&child, device.DevInst, 0), CR_NO_SUCH_DEVNODE);
  ASSERT_EQ(SetupDiEnumDeviceInfo(now, 0, &device), TRUE);
  ASSERT_EQ(CM_Get_Child(&child, device.DevInst, 0), CR_SUCCESS);
  DEVINST grandchild = 0;
  EXPECT_EQ(CM_Get_Child(&grandchild, child, 0), CR_NO_SUCH_DEVNODE);
  EXPECT_EQ(SetupDiDestroyDeviceInfoList(now), TRUE);
}

TEST_F(DeviceNodeTest, IsTheSameInEverySet) {
  HDEVINFO other = SetupDiGetClassDevsW(&GUID_DEVINTERFACE_USB_DEVICE, nullptr, nullptr, kFlags);
  SP_DEVINFO_DATA again{};
  again.cbSize = sizeof(again);
  ASSERT_EQ(SetupDiEnumDeviceInfo(set, 1, &device), TRUE);
  ASSERT_EQ(SetupDiEnumDeviceInfo(other, 1, &again), TRUE);
  EXPECT_EQ(device.DevInst, again.DevInst);
  EXPECT_NE(device.DevInst, 0U);
  EXPECT_EQ(SetupDiDestroyDeviceInfoList(other), TRUE);
}

TEST_F(DeviceNodeTest, IdStaysWithinTheBuffer) {
  ASSERT_EQ(SetupDiEnumDeviceInfo(set, 0, &device), TRUE);
  std::array<char, 256> whole{};
  ASSERT_EQ(CM_Get_Device_IDA(device.DevInst, whole.data(), 256, 0), CR_SUCCESS);
  for (ULONG size = 0; size < std::strlen(whole.data()) + 2; ++size) {
    std::array<char, 256> id{};
    id.fill('~');
    const CONFIGRET result = CM_Get_Device_IDA(device.DevInst, id.data(), size, 0);
    if (result == CR_SUCCESS) {
      ASSERT_GT(size, 0U);
      EXPECT_LT(strnlen(id.data(), size), size) << "terminated";
      EXPECT_EQ(std::strncmp(id.data(), whole.data(), std::strlen(id.data())), 0);
    } else {
      EXPECT_EQ(result, kBufferSmall);
      EXPECT_LE(size, std::strlen(whole.data())) << "the buffer is large enough";
    }
    for (std::size_t i = size; i < id.size(); ++i) {
      ASSERT_EQ(id.at(i), '~') << "byte " << i << " with size " << size;
    }
  }
}

TEST_F(DeviceNodeTest, NullOutPointersAreRejected) {
  ASSERT_EQ(SetupDiEnumDeviceInfo(set, 0, &device), TRUE);
  ULONG word = 0;
  EXPECT_EQ(CM_Get_Device_IDA(device.DevInst, nullptr, 256, 0), kInvalidPointer);
  EXPECT_EQ(CM_Get_Child(nullptr, device.DevInst, 0), kInvalidPointer);
  EXPECT_EQ(CM_Get_DevNode_Status(nullptr, &word, device.DevInst, 0), kInvalidPointer);
  EXPECT_EQ(CM_Get_DevNode_Status(&word, nullptr, device.DevInst, 0), kInvalidPointer);
}

}  // namespace
}  // namespace linux_support
