// SetupAPI's and the configuration manager's functions over the PC's USB devices.
#include "SetupApi.h"

#include <algorithm>
#include <cstddef>
#include <mutex>
#include <set>

#include "com/ComObject.h"
#include "devices/DeviceNodes.h"
#include "devices/DeviceProvider.h"

namespace {

constexpr CONFIGRET CR_INVALID_POINTER = 0x03;
constexpr CONFIGRET CR_BUFFER_SMALL = 0x1A;
constexpr CONFIGRET CR_OUT_OF_MEMORY = 0x02;

struct Entry {
  DEVINST number = 0;
  std::wstring path;  // of its interface
};

struct DeviceInfoSet {
  std::vector<Entry> entries;
};

// The sets that callers hold. A handle is the address of one.
class OpenSets {
 public:
  static OpenSets& Get() {
    static OpenSets sets;
    return sets;
  }

  HDEVINFO Add(std::vector<Entry> entries) {
    const std::lock_guard lock(m_mutex);
    auto set = std::make_unique<DeviceInfoSet>(DeviceInfoSet{std::move(entries)});
    auto* const handle = set.get();
    m_sets.emplace(handle, std::move(set));
    return handle;
  }

  bool Remove(HDEVINFO handle) {
    const std::lock_guard lock(m_mutex);
    return m_sets.erase(handle) == 1;
  }

  // False for a handle that is none, or an index past the last.
  bool Find(HDEVINFO handle, std::size_t index, Entry& entry) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_sets.find(handle);
    if (found == m_sets.end() || index >= found->second->entries.size()) {
      return false;
    }
    entry = found->second->entries[index];
    return true;
  }

 private:
  std::mutex m_mutex;
  std::map<HDEVINFO, std::unique_ptr<DeviceInfoSet>> m_sets;
};

Entry MakeEntry(const UsbDevice& device) {
  const std::string path = R"(\\?\)" + DisplayForm(device.id) + "#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
  return {DeviceNodes::Get().Note(device), std::wstring(path.begin(), path.end())};
}

void Fill(DEVINST number, SP_DEVINFO_DATA& device) {
  device.ClassGuid = GUID{0x36FC9E60, 0xC465, 0x11CF, {0x80, 0x56, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};
  device.DevInst = number;
  device.Reserved = 0;
}

// What the action makes of the node; CR_NO_SUCH_DEVNODE for a number that is none.
template <typename Action>
CONFIGRET WithNode(DEVINST number, Action&& action) noexcept try {
  DeviceNode node;
  return DeviceNodes::Get().Find(number, node) ? std::forward<Action>(action)(node) : CR_NO_SUCH_DEVNODE;
} catch (...) {
  return CR_OUT_OF_MEMORY;
}

template <typename Action>
BOOL Succeeds(Action&& action) {
  return Guarded([&] { return std::forward<Action>(action)() ? S_OK : E_FAIL; }) == S_OK ? TRUE : FALSE;
}

}  // namespace

NUVEQ_PLATFORM_EXPORT HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* classId, const WCHAR* /*enumerator*/,
                                                           HWND /*parent*/, DWORD /*flags*/) {
  HDEVINFO set = INVALID_HANDLE_VALUE;
  static_cast<void>(Guarded([&] {
    std::vector<Entry> entries;
    if (classId != nullptr && *classId == GUID_DEVINTERFACE_USB_DEVICE) {
      const std::vector<UsbDevice> devices = CurrentDeviceTree()->UsbDevices();
      std::transform(devices.begin(), devices.end(), std::back_inserter(entries), MakeEntry);
    }
    set = OpenSets::Get().Add(std::move(entries));
    return S_OK;
  }));
  return set;
}

NUVEQ_PLATFORM_EXPORT BOOL WINAPI SetupDiEnumDeviceInterfaces(HDEVINFO set, SP_DEVINFO_DATA* /*device*/,
                                                              const GUID* classId, DWORD index,
                                                              SP_DEVICE_INTERFACE_DATA* data) {
  return Succeeds([&] {
    Entry entry;
    if (data == nullptr || data->cbSize != sizeof(*data) || classId == nullptr ||
        !(*classId == GUID_DEVINTERFACE_USB_DEVICE) || !OpenSets::Get().Find(set, index, entry)) {
      return false;
    }
    data->InterfaceClassGuid = *classId;
    data->Flags = 1;  // active
    data->Reserved = index;
    return true;
  });
}

NUVEQ_PLATFORM_EXPORT BOOL WINAPI SetupDiGetDeviceInterfaceDetailW(HDEVINFO set,
                                                                   SP_DEVICE_INTERFACE_DATA* data,
                                                                   SP_DEVICE_INTERFACE_DETAIL_DATA_W* detail,
                                                                   DWORD detailSize, DWORD* requiredSize,
                                                                   SP_DEVINFO_DATA* device) {
  return Succeeds([&] {
    Entry entry;
    if (data == nullptr || data->cbSize != sizeof(*data) ||
        !OpenSets::Get().Find(set, data->Reserved, entry)) {
      return false;
    }
    constexpr std::size_t kPathOffset = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath);
    const std::size_t required = kPathOffset + (entry.path.size() + 1) * sizeof(WCHAR);
    if (requiredSize != nullptr) {
      *requiredSize = static_cast<DWORD>(required);
    }
    if (detail == nullptr || detail->cbSize != sizeof(*detail) || detailSize < required ||
        (device != nullptr && device->cbSize != sizeof(*device))) {
      return false;
    }
    std::memcpy(reinterpret_cast<BYTE*>(detail) + kPathOffset, entry.path.c_str(), required - kPathOffset);
    if (device != nullptr) {
      Fill(entry.number, *device);
    }
    return true;
  });
}

NUVEQ_PLATFORM_EXPORT BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, SP_DEVINFO_DATA* device) {
  return Succeeds([&] {
    Entry entry;
    if (device == nullptr || device->cbSize != sizeof(*device) || !OpenSets::Get().Find(set, index, entry)) {
      return false;
    }
    Fill(entry.number, *device);
    return true;
  });
}

NUVEQ_PLATFORM_EXPORT BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO set) {
  return Succeeds([&] { return OpenSets::Get().Remove(set); });
}

NUVEQ_PLATFORM_EXPORT CONFIGRET WINAPI CM_Get_DevNode_Status(ULONG* status, ULONG* problem, DEVINST device,
                                                             ULONG /*flags*/) {
  if (status == nullptr || problem == nullptr) {
    return CR_INVALID_POINTER;
  }
  return WithNode(device, [&](const DeviceNode& node) {
    *status = node.isRemovable ? DN_REMOVABLE : 0;
    *problem = 0;
    return CR_SUCCESS;
  });
}

NUVEQ_PLATFORM_EXPORT CONFIGRET WINAPI CM_Get_Child(PDEVINST child, DEVINST device, ULONG /*flags*/) {
  if (child == nullptr) {
    return CR_INVALID_POINTER;
  }
  return WithNode(device, [&](const DeviceNode& node) {
    if (node.firstChild == 0) {
      return CR_NO_SUCH_DEVNODE;
    }
    *child = node.firstChild;
    return CR_SUCCESS;
  });
}

NUVEQ_PLATFORM_EXPORT CONFIGRET WINAPI CM_Get_Device_IDA(DEVINST device, char* buffer, ULONG length,
                                                         ULONG /*flags*/) {
  if (buffer == nullptr) {
    return CR_INVALID_POINTER;
  }
  return WithNode(device, [&](const DeviceNode& node) {
    if (length <= node.id.size()) {
      return CR_BUFFER_SMALL;
    }
    std::memcpy(buffer, node.id.c_str(), node.id.size() + 1);
    return CR_SUCCESS;
  });
}
