// Replaces the three functions of the configuration manager that return success in Wine without writing their
// outputs. For the fixtures' USB devices they return values from the registry. All other devices and
// functions are forwarded to the system.
#include <windows.h>

#include <cfgmgr32.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "support/windows/UsbRegistry.h"

namespace {

// Handles of child devices start above those of the system.
constexpr DEVINST kFirstChild = 0x40000000;
constexpr std::size_t kIdSize = MAX_DEVICE_ID_LEN + 1;

struct Children {
  std::mutex mutex;
  std::vector<std::wstring> ids;
};

Children& KnownChildren() {
  static Children children;
  return children;
}

DEVINST ChildHandle(const std::wstring& childId) {
  Children& children = KnownChildren();
  const std::lock_guard lock(children.mutex);
  auto found = std::find(children.ids.begin(), children.ids.end(), childId);
  if (found == children.ids.end()) {
    found = children.ids.insert(found, childId);
  }
  return kFirstChild + static_cast<DEVINST>(found - children.ids.begin());
}

// Empty for an unknown handle.
std::wstring ChildId(DEVINST child) {
  Children& children = KnownChildren();
  const std::lock_guard lock(children.mutex);
  const std::size_t index = child - kFirstChild;
  return index < children.ids.size() ? children.ids[index] : std::wstring();
}

// The registry key of a device; empty for children and unknown devices.
std::wstring DeviceKey(DEVINST device) {
  std::array<wchar_t, kIdSize> id{};
  if (device >= kFirstChild ||
      CM_Get_Device_IDW(device, id.data(), static_cast<ULONG>(id.size()), 0) != CR_SUCCESS) {
    return {};
  }
  return fixtures::UsbDeviceKey(id.data());
}

bool ReadNumber(const std::wstring& key, const wchar_t* value, DWORD& number) {
  DWORD size = sizeof(number);
  return !key.empty() && RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), value, RRF_RT_REG_DWORD, nullptr,
                                      &number, &size) == ERROR_SUCCESS;
}

bool ReadText(const std::wstring& key, const wchar_t* value, std::wstring& text) {
  std::array<wchar_t, kIdSize> buffer{};
  auto size = static_cast<DWORD>(buffer.size() * sizeof(wchar_t));
  if (key.empty() || RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), value, RRF_RT_REG_SZ, nullptr,
                                  buffer.data(), &size) != ERROR_SUCCESS) {
    return false;
  }
  text = buffer.data();
  return true;
}

template <typename Action>
CONFIGRET CatchToConfigRet(Action&& action) noexcept try {
  return std::forward<Action>(action)();
} catch (const std::bad_alloc&) {
  return CR_OUT_OF_MEMORY;
} catch (...) {
  return CR_FAILURE;
}

}  // namespace

extern "C" {

CONFIGRET WINAPI FixtureGetDevNodeStatus(PULONG status, PULONG problem, DEVINST device, ULONG flags) {
  return CatchToConfigRet([&]() -> CONFIGRET {
    DWORD isRemovable = 0;
    if (!ReadNumber(DeviceKey(device), fixtures::kRemovableValue, isRemovable)) {
      return CM_Get_DevNode_Status(status, problem, device, flags);
    }
    if (status == nullptr || problem == nullptr) {
      return CR_INVALID_POINTER;
    }
    *status = DN_ROOT_ENUMERATED | DN_DRIVER_LOADED | DN_STARTED | (isRemovable != 0 ? DN_REMOVABLE : 0);
    *problem = 0;
    return CR_SUCCESS;
  });
}

CONFIGRET WINAPI FixtureGetChild(PDEVINST child, DEVINST device, ULONG flags) {
  return CatchToConfigRet([&]() -> CONFIGRET {
    std::wstring id;
    if (!ReadText(DeviceKey(device), fixtures::kChildIdValue, id)) {
      return CM_Get_Child(child, device, flags);
    }
    if (child == nullptr) {
      return CR_INVALID_POINTER;
    }
    if (id.empty()) {
      return CR_NO_SUCH_DEVNODE;
    }
    *child = ChildHandle(id);
    return CR_SUCCESS;
  });
}

CONFIGRET WINAPI FixtureGetDeviceIdA(DEVINST device, PSTR buffer, ULONG length, ULONG flags) {
  return CatchToConfigRet([&]() -> CONFIGRET {
    if (device < kFirstChild) {
      return CM_Get_Device_IDA(device, buffer, length, flags);
    }
    const std::wstring id = ChildId(device);
    if (id.empty()) {
      return CR_INVALID_DEVNODE;
    }
    if (buffer == nullptr) {
      return CR_INVALID_POINTER;
    }
    if (length < id.size()) {
      return CR_BUFFER_SMALL;
    }
    // Instance ids are ASCII. Like the system, omits the terminator if it does not fit.
    std::transform(id.begin(), id.end(), buffer, [](wchar_t c) { return static_cast<char>(c); });
    if (length > id.size()) {
      buffer[id.size()] = '\0';
    }
    return CR_SUCCESS;
  });
}

}  // extern "C"
