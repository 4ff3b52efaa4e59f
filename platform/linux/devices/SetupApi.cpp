// SetupAPI's and the configuration manager's functions over the PC's USB devices.
#include "SetupApi.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "devices/DeviceProvider.h"

namespace devices {

namespace {

constexpr CONFIGRET CR_INVALID_POINTER = 0x03;
constexpr CONFIGRET CR_BUFFER_SMALL = 0x1A;
constexpr CONFIGRET CR_OUT_OF_MEMORY = 0x02;

struct DeviceNode {
  std::string id;
  bool isRemovable = true;
  DEVINST firstChild = 0;  // 0: none
};

// Device instance handles of USB devices and their children. A handle stays valid and refers to the same
// instance id for the life of the process. May be called from any thread.
class DeviceNodes {
 public:
  static DeviceNodes& Get() {
    static DeviceNodes nodes;
    return nodes;
  }

  // Stores the current state of a device and returns its handle.
  DEVINST Update(const UsbDevice& device) {
    const std::lock_guard lock(m_mutex);
    const DEVINST child = device.firstChildId.empty() ? 0 : HandleOf(device.firstChildId);
    const DEVINST handle = HandleOf(device.id);
    m_nodes[handle - 1].isRemovable = device.isRemovable;
    m_nodes[handle - 1].firstChild = child;
    return handle;
  }

  // Returns false for an invalid handle.
  bool Find(DEVINST handle, DeviceNode& node) {
    const std::lock_guard lock(m_mutex);
    if (handle == 0 || handle > m_nodes.size()) {
      return false;
    }
    node = m_nodes[handle - 1];
    return true;
  }

 private:
  DEVINST HandleOf(const std::string& id) {
    if (const auto known = m_handles.find(id); known != m_handles.end()) {
      return known->second;
    }
    // The node comes first: if the map then throws, a node without a handle does no harm.
    m_nodes.push_back({id});
    const auto handle = static_cast<DEVINST>(m_nodes.size());
    m_handles.emplace(id, handle);
    return handle;
  }

  std::mutex m_mutex;
  std::map<std::string, DEVINST> m_handles;
  std::vector<DeviceNode> m_nodes;  // handle 1 first
};

struct Entry {
  DEVINST handle = 0;
  std::wstring path;  // of the device interface
};

struct DeviceInfoSet {
  std::vector<Entry> entries;
};

// The open device information sets. An HDEVINFO is the address of one.
class DeviceInfoSets {
 public:
  static DeviceInfoSets& Get() {
    static DeviceInfoSets sets;
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

  // Returns false for an invalid handle or index.
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
  const std::string path =
      R"(\\?\)" + ToDisplayNameForm(device.id) + "#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
  return {DeviceNodes::Get().Update(device), std::wstring(path.begin(), path.end())};
}

void Fill(DEVINST handle, SP_DEVINFO_DATA& device) {
  device.ClassGuid = GUID{0x36FC9E60, 0xC465, 0x11CF, {0x80, 0x56, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};
  device.DevInst = handle;
}

// Returns the result of the action with the node, or CR_NO_SUCH_DEVNODE for an invalid handle.
template <typename Action>
CONFIGRET WithNode(DEVINST handle, Action&& action) noexcept try {
  DeviceNode node;
  return DeviceNodes::Get().Find(handle, node) ? std::forward<Action>(action)(node) : CR_NO_SUCH_DEVNODE;
} catch (...) {
  return CR_OUT_OF_MEMORY;
}

// Returns FALSE if the action throws.
template <typename Action>
BOOL CatchToBool(Action&& action) noexcept try {
  return std::forward<Action>(action)() ? TRUE : FALSE;
} catch (...) {
  return FALSE;
}

}  // namespace

}  // namespace devices

NUVEQ_PLATFORM_EXPORT HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* classId, const WCHAR* /*enumerator*/,
                                                           HWND /*parent*/, DWORD /*flags*/) try {
  std::vector<devices::Entry> entries;
  if (classId != nullptr && *classId == GUID_DEVINTERFACE_USB_DEVICE) {
    const std::vector<devices::UsbDevice> devices = devices::CurrentDeviceProvider()->UsbDevices();
    std::transform(devices.begin(), devices.end(), std::back_inserter(entries), devices::MakeEntry);
  }
  return devices::DeviceInfoSets::Get().Add(std::move(entries));
} catch (...) {
  return INVALID_HANDLE_VALUE;
}

NUVEQ_PLATFORM_EXPORT BOOL WINAPI SetupDiEnumDeviceInterfaces(HDEVINFO set, SP_DEVINFO_DATA* /*device*/,
                                                              const GUID* classId, DWORD index,
                                                              SP_DEVICE_INTERFACE_DATA* data) {
  return devices::CatchToBool([&] {
    devices::Entry entry;
    if (data == nullptr || data->cbSize != sizeof(*data) || classId == nullptr ||
        !(*classId == GUID_DEVINTERFACE_USB_DEVICE) ||
        !devices::DeviceInfoSets::Get().Find(set, index, entry)) {
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
  return devices::CatchToBool([&] {
    devices::Entry entry;
    if (data == nullptr || data->cbSize != sizeof(*data) ||
        !devices::DeviceInfoSets::Get().Find(set, data->Reserved, entry)) {
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
      devices::Fill(entry.handle, *device);
    }
    return true;
  });
}

NUVEQ_PLATFORM_EXPORT BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, SP_DEVINFO_DATA* device) {
  return devices::CatchToBool([&] {
    devices::Entry entry;
    if (device == nullptr || device->cbSize != sizeof(*device) ||
        !devices::DeviceInfoSets::Get().Find(set, index, entry)) {
      return false;
    }
    devices::Fill(entry.handle, *device);
    return true;
  });
}

NUVEQ_PLATFORM_EXPORT BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO set) {
  return devices::CatchToBool([&] { return devices::DeviceInfoSets::Get().Remove(set); });
}

NUVEQ_PLATFORM_EXPORT CONFIGRET WINAPI CM_Get_DevNode_Status(ULONG* status, ULONG* problem, DEVINST device,
                                                             ULONG /*flags*/) {
  if (status == nullptr || problem == nullptr) {
    return devices::CR_INVALID_POINTER;
  }
  return devices::WithNode(device, [&](const devices::DeviceNode& node) {
    *status = node.isRemovable ? DN_REMOVABLE : 0;
    *problem = 0;
    return CR_SUCCESS;
  });
}

NUVEQ_PLATFORM_EXPORT CONFIGRET WINAPI CM_Get_Child(PDEVINST child, DEVINST device, ULONG /*flags*/) {
  if (child == nullptr) {
    return devices::CR_INVALID_POINTER;
  }
  return devices::WithNode(device, [&](const devices::DeviceNode& node) {
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
    return devices::CR_INVALID_POINTER;
  }
  return devices::WithNode(device, [&](const devices::DeviceNode& node) {
    if (length <= node.id.size()) {
      return devices::CR_BUFFER_SMALL;
    }
    std::memcpy(buffer, node.id.c_str(), node.id.size() + 1);
    return CR_SUCCESS;
  });
}
