#include "devices/UsbDevices.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <memory>
#include <type_traits>

#include "SetupApi.h"
#include "cli/Text.h"

namespace nuveqcam {
namespace {

constexpr std::size_t kDetailSize = 1024;

struct DeviceInfoListDeleter {
  using pointer = HDEVINFO;
  void operator()(HDEVINFO list) const {
    if (list != INVALID_HANDLE_VALUE) {
      SetupDiDestroyDeviceInfoList(list);
    }
  }
};

void ReadStatus(DEVINST device, UsbDeviceDetails& described) {
  ULONG status = DN_REMOVABLE;
  ULONG problem = 0;
  described.device.isStatusKnown = CM_Get_DevNode_Status(&status, &problem, device, 0) == CR_SUCCESS;
  described.device.isRemovable = !described.device.isStatusKnown || (status & DN_REMOVABLE) != 0;
}

std::string IdOf(DEVINST device) {
  std::array<char, MAX_DEVICE_ID_LEN + 1> id{};
  return CM_Get_Device_IDA(device, id.data(), MAX_DEVICE_ID_LEN, 0) == CR_SUCCESS ? id.data() : "";
}

std::string FirstChildId(DEVINST device) {
  DEVINST child = 0;
  return CM_Get_Child(&child, device, 0) == CR_SUCCESS && child != 0 ? IdOf(child) : std::string();
}

// A string property of the device; empty if it has none.
std::string Property(HDEVINFO list, SP_DEVINFO_DATA& device, DWORD property) {
  std::array<wchar_t, kDetailSize> text{};
  DWORD type = 0;
  // Leaves room for a terminating null character.
  constexpr DWORD kBytes = (kDetailSize - 1) * sizeof(wchar_t);
  if (SetupDiGetDeviceRegistryPropertyW(list, &device, property, &type, reinterpret_cast<BYTE*>(text.data()),
                                        kBytes, nullptr) == FALSE ||
      type != REG_SZ) {
    return {};
  }
  return ToUtf8(text.data());
}

UsbDeviceDetails Describe(HDEVINFO list, SP_DEVINFO_DATA& device) {
  UsbDeviceDetails described;
  ReadStatus(device.DevInst, described);
  described.device.firstChildId = FirstChildId(device.DevInst);
  described.id = IdOf(device.DevInst);
  described.name = Property(list, device, SPDRP_FRIENDLYNAME);
  if (described.name.empty()) {
    described.name = Property(list, device, SPDRP_DEVICEDESC);
  }
  described.location = Property(list, device, SPDRP_LOCATION_INFORMATION);
  return described;
}

// The four hexadecimal digits after a prefix, in lower case.
std::string DigitsAfter(const std::string& id, const char* prefix) {
  constexpr std::size_t kDigits = 4;
  const std::size_t begin = id.find(prefix);
  std::string digits = begin == std::string::npos ? "" : id.substr(begin + kDigits, kDigits);
  for (char& c : digits) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  const bool isNumber =
      std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
  return digits.size() == kDigits && isNumber ? digits : "";
}

// Finds the device for the interface with the index.
bool FindDevice(HDEVINFO list, DWORD index, SP_DEVICE_INTERFACE_DATA& data, SP_DEVINFO_DATA& device) {
  alignas(SP_DEVICE_INTERFACE_DETAIL_DATA_W) std::array<unsigned char, kDetailSize> buffer{};
  auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.data());
  detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
  // Enumerates the device by the interface's index, as the camera library does.
  return SetupDiGetDeviceInterfaceDetailW(list, &data, detail, kDetailSize, nullptr, &device) != FALSE &&
         SetupDiEnumDeviceInfo(list, index, &device) != FALSE;
}

}  // namespace

std::vector<UsbDeviceDetails> DescribeUsbDevices() {
  std::vector<UsbDeviceDetails> devices;
  const std::unique_ptr<std::remove_pointer_t<HDEVINFO>, DeviceInfoListDeleter> list(
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
      devices.push_back(Describe(list.get(), device));
    }
  }
  return devices;
}

std::vector<UsbDevice> ListUsbDevices() {
  std::vector<UsbDevice> devices;
  for (UsbDeviceDetails& described : DescribeUsbDevices()) {
    devices.push_back(std::move(described.device));
  }
  return devices;
}

std::vector<std::string> PlacesOf(const std::vector<UsbDeviceDetails>& devices) {
  std::vector<std::string> places;
  for (const UsbDeviceDetails& device : devices) {
    const auto sharing = std::count_if(devices.begin(), devices.end(), [&](const UsbDeviceDetails& other) {
      return other.location == device.location;
    });
    places.push_back(device.location.empty() || sharing > 1 ? device.id : device.location);
  }
  return places;
}

std::string ModelIn(const std::string& id) {
  const std::string vendor = DigitsAfter(id, "VID_");
  const std::string product = DigitsAfter(id, "PID_");
  return vendor.empty() || product.empty() ? std::string() : vendor + ":" + product;
}

}  // namespace nuveqcam
