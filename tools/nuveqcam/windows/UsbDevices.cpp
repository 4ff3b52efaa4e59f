#include "UsbDevices.h"

#include <array>
#include <memory>
#include <type_traits>

#include "SetupApi.h"

namespace {

constexpr std::size_t kDetailSize = 1024;

struct DestroyList {
  using pointer = HDEVINFO;
  void operator()(HDEVINFO list) const {
    if (list != INVALID_HANDLE_VALUE) {
      SetupDiDestroyDeviceInfoList(list);
    }
  }
};

bool IsRemovable(DEVINST device) {
  ULONG status = DN_REMOVABLE;
  ULONG problem = 0;
  return CM_Get_DevNode_Status(&status, &problem, device, 0) != CR_SUCCESS || (status & DN_REMOVABLE) != 0;
}

std::string FirstChildId(DEVINST device) {
  DEVINST child = 0;
  std::array<char, MAX_DEVICE_ID_LEN + 1> id{};
  if (CM_Get_Child(&child, device, 0) != CR_SUCCESS || child == 0 ||
      CM_Get_Device_IDA(child, id.data(), MAX_DEVICE_ID_LEN, 0) != CR_SUCCESS) {
    return {};
  }
  return id.data();
}

// The device with the interface of that number.
bool FindDevice(HDEVINFO list, DWORD index, SP_DEVICE_INTERFACE_DATA& data, SP_DEVINFO_DATA& device) {
  alignas(SP_DEVICE_INTERFACE_DETAIL_DATA_W) std::array<unsigned char, kDetailSize> buffer{};
  auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.data());
  detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
  // The camera library goes by the number, too.
  return SetupDiGetDeviceInterfaceDetailW(list, &data, detail, kDetailSize, nullptr, &device) != FALSE &&
         SetupDiEnumDeviceInfo(list, index, &device) != FALSE;
}

}  // namespace

std::vector<UsbDevice> PresentUsbDevices() {
  std::vector<UsbDevice> devices;
  const std::unique_ptr<std::remove_pointer_t<HDEVINFO>, DestroyList> list(
      SetupDiGetClassDevsW(&GUID_DEVINTERFACE_USB_DEVICE, nullptr, nullptr,
                           DIGCF_PRESENT | DIGCF_PROFILE | DIGCF_DEVICEINTERFACE));
  SP_DEVICE_INTERFACE_DATA data{};
  data.cbSize = sizeof(data);
  for (DWORD index = 0;
       SetupDiEnumDeviceInterfaces(list.get(), nullptr, &GUID_DEVINTERFACE_USB_DEVICE, index, &data) != FALSE;
       ++index) {
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof(device);
    if (FindDevice(list.get(), index, data, device)) {
      devices.push_back({IsRemovable(device.DevInst), FirstChildId(device.DevInst)});
    }
  }
  return devices;
}
