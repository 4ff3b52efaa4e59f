// Finding and binding the built-in camera, and parsing camera ids.
#include <utf8.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>

#include "CameraOperator.h"
#include "Log.h"
#include "Receive.h"
#include "SetupApi.h"

namespace {

constexpr DWORD kTaskAllocator = 1;
constexpr std::size_t kInterfaceDetailSize = 1024;
constexpr std::size_t kInstanceIdSize = 256;

// Owns a SetupAPI device information set.
class DeviceInfoSet {
 public:
  explicit DeviceInfoSet(HDEVINFO set) : m_set(set) {}
  DeviceInfoSet(const DeviceInfoSet&) = delete;
  DeviceInfoSet& operator=(const DeviceInfoSet&) = delete;
  ~DeviceInfoSet() {
    if (IsValid()) {
      SetupDiDestroyDeviceInfoList(m_set);
    }
  }

  HDEVINFO Get() const { return m_set; }
  bool IsValid() const { return m_set != INVALID_HANDLE_VALUE; }

 private:
  HDEVINFO m_set;
};

// Returns the device at the given index of the set; nullopt if its interface detail cannot be read.
std::optional<DEVINST> GetDevice(const DeviceInfoSet& set, DWORD index, SP_DEVICE_INTERFACE_DATA& data) {
  // The call must succeed; its outputs are not used.
  alignas(SP_DEVICE_INTERFACE_DETAIL_DATA_W) std::array<unsigned char, kInterfaceDetailSize> buffer{};
  auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.data());
  detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
  SP_DEVINFO_DATA unused{};
  unused.cbSize = sizeof(unused);
  if (SetupDiGetDeviceInterfaceDetailW(set.Get(), &data, detail, kInterfaceDetailSize, nullptr, &unused) ==
      FALSE) {
    return std::nullopt;
  }
  SP_DEVINFO_DATA device{};
  device.cbSize = sizeof(device);
  if (SetupDiEnumDeviceInfo(set.Get(), index, &device) == FALSE) {
    return std::nullopt;
  }
  return device.DevInst;
}

// The status is initialised as removable, since some systems return success without writing it.
bool IsFixed(DEVINST device) {
  ULONG status = DN_REMOVABLE;
  ULONG problem = 0;
  return CM_Get_DevNode_Status(&status, &problem, device, 0) == CR_SUCCESS && (status & DN_REMOVABLE) == 0;
}

// Appends the instance id of the device's first child node, if it has one.
void AppendFirstChildId(DEVINST device, std::vector<std::string>& ids) {
  DEVINST child = 0;
  if (CM_Get_Child(&child, device, 0) != CR_SUCCESS || child == 0) {
    return;
  }
  std::array<char, kInstanceIdSize> id{};
  if (CM_Get_Device_IDA(child, id.data(), kInstanceIdSize, 0) == CR_SUCCESS) {
    ids.emplace_back(id.begin(), std::find(id.begin(), id.end(), '\0'));
  }
}

// Converts an instance id to the form used in display names: lower case, with "#" for "\".
std::string ToDisplayNameForm(std::string id) {
  for (char& c : id) {
    c = c == '\\' ? '#' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return id;
}

// Decodes surrogate pairs with 16-bit and with 32-bit wchar_t.
std::string ToUtf8(const std::wstring& text) try {
  const auto isSupplementary = [](char32_t c) { return c > 0xFFFF; };
  std::string converted;
  for (auto next = text.begin(); next != text.end();) {
    // utf16to8 ignores the upper bits of a 32-bit wchar_t.
    const auto supplementary = std::find_if(next, text.end(), isSupplementary);
    utf8::utf16to8(next, supplementary, std::back_inserter(converted));
    next = supplementary;
    if (next != text.end()) {
      utf8::append(static_cast<char32_t>(*next++), converted);
    }
  }
  return converted;
} catch (const utf8::exception&) {
  throw std::range_error("bad conversion");
}

HRESULT CreateDeviceEnumerator(ComPtr<ICreateDevEnum>& devices) {
  return Receive(devices.Put(), [](void** out) {
    return CoCreateInstance(CLSID_SystemDeviceEnum, nullptr, CLSCTX_INPROC_SERVER, IID_ICreateDevEnum, out);
  });
}

HRESULT EnumerateCameras(ICreateDevEnum& devices, ComPtr<IEnumMoniker>& monikers) {
  return Receive(monikers.Put(), [&](IEnumMoniker** out) {
    return devices.CreateClassEnumerator(CLSID_VideoInputDeviceCategory, out, 0);
  });
}

// Returns false at the end of the enumeration. The moniker may be null.
bool NextMoniker(IEnumMoniker& monikers, ComPtr<IMoniker>& moniker) {
  ULONG fetched = 0;
  return Receive(moniker.Put(), [&](IMoniker** out) { return monikers.Next(1, out, &fetched); }) == S_OK;
}

// Frees task memory with the given allocator.
struct FreeWithAllocator {
  IMalloc* allocator;
  void operator()(WCHAR* text) const { allocator->Free(text); }
};

}  // namespace

std::vector<std::string> CameraOperator::QueryFixedUsbDeviceIds() {
  std::vector<std::string> ids;
  const DeviceInfoSet set(SetupDiGetClassDevsW(&GUID_DEVINTERFACE_USB_DEVICE, nullptr, nullptr,
                                               DIGCF_PRESENT | DIGCF_PROFILE | DIGCF_DEVICEINTERFACE));
  if (!set.IsValid()) {
    return ids;
  }
  for (DWORD index = 0;; ++index) {
    SP_DEVICE_INTERFACE_DATA data{};
    data.cbSize = sizeof(data);
    if (SetupDiEnumDeviceInterfaces(set.Get(), nullptr, &GUID_DEVINTERFACE_USB_DEVICE, index, &data) !=
        TRUE) {
      return ids;
    }
    if (const std::optional<DEVINST> device = GetDevice(set, index, data); device && IsFixed(*device)) {
      AppendFirstChildId(*device, ids);
    }
  }
}

std::string CameraOperator::GetMonikerDisplayName(const ComPtr<IMoniker>& moniker) {
  if (!moniker) {
    return {};
  }
  ComPtr<IMalloc> allocator;
  Receive(allocator.Put(), [](IMalloc** out) { return CoGetMalloc(kTaskAllocator, out); });
  if (!allocator) {
    return {};
  }
  ComPtr<IBindCtx> context;
  Receive(context.Put(), [](IBindCtx** out) { return CreateBindCtx(0, out); });
  if (!context) {
    return {};
  }
  LPOLESTR text = nullptr;
  Receive(&text, [&](LPOLESTR* out) { return moniker->GetDisplayName(context.Get(), nullptr, out); });
  if (text == nullptr) {
    return {};
  }
  const std::unique_ptr<WCHAR, FreeWithAllocator> owner(text, FreeWithAllocator{allocator.Get()});
  return ToUtf8(text);
}

std::string CameraOperator::FindPCCameraName(const std::vector<std::string>& displayNames) {
  for (const std::string& id : QueryFixedUsbDeviceIds()) {
    const std::string part = ToDisplayNameForm(id);
    for (const std::string& name : displayNames) {
      if (name.find(part) != std::string::npos) {
        return name;
      }
    }
  }
  return {};
}

unsigned int CameraOperator::CameraCount() {
  ComPtr<ICreateDevEnum> devices;
  HRESULT hr = CreateDeviceEnumerator(devices);
  if (!devices) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 565, L"fail to create enumrate instance, error:", hr);
    return 0;
  }
  ComPtr<IEnumMoniker> monikers;
  hr = EnumerateCameras(*devices.Get(), monikers);
  if (!monikers) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 573, L"fail to create enumrate class, error: ", hr);
    return 0;
  }
  m_cameraNames.clear();
  monikers->Reset();
  // A local list: if an exception is thrown, m_cameraNames holds no name that was not accepted.
  std::vector<std::string> displayNames;
  ComPtr<IMoniker> moniker;
  while (NextMoniker(*monikers.Get(), moniker)) {
    if (std::string name = GetMonikerDisplayName(moniker); !name.empty()) {
      displayNames.push_back(std::move(name));
    }
  }
  if (std::string builtIn = FindPCCameraName(displayNames); !builtIn.empty()) {
    m_cameraNames.push_back(std::move(builtIn));
  }
  return static_cast<unsigned int>(m_cameraNames.size());
}

bool CameraOperator::BindDeviceFilter(unsigned int cameraIndex, IBaseFilter** filter) {
  if (cameraIndex >= m_cameraNames.size()) {
    return false;
  }
  ComPtr<ICreateDevEnum> devices;
  HRESULT hr = CreateDeviceEnumerator(devices);
  if (!devices) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 286, L"fail to create enumlate instance, error:", hr);
    return false;
  }
  ComPtr<IEnumMoniker> monikers;
  hr = EnumerateCameras(*devices.Get(), monikers);
  if (!monikers) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 294, L"Enumerate device fail, error: ", hr);
    return false;
  }
  monikers->Reset();
  ComPtr<IMoniker> moniker;
  while (NextMoniker(*monikers.Get(), moniker)) {
    if (!moniker || GetMonikerDisplayName(moniker).find(m_cameraNames[cameraIndex]) == std::string::npos) {
      continue;
    }
    hr = Receive(filter,
                 [&](void** out) { return moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter, out); });
    if (hr != S_OK) {
      OPERATOR_LOG(ERROR_LOG_LEVEL, 308, L"BindFilter fail. cameraIndex:", cameraIndex);
      return false;
    }
    return true;
  }
  return true;
}

bool CameraOperator::ParseCameraId(const char* id, std::uint32_t idLen, unsigned int* cameraIndex) {
  if (id == nullptr) {
    return false;
  }
  const char* const end = id + idLen;
  // Stops at the first non-digit, so that a length beyond the end of the text is harmless.
  if (!std::all_of(id, end, [](char c) { return c >= '0' && c <= '9'; })) {
    return false;
  }
  int index = 0;
  if (std::from_chars(id, end, index).ec == std::errc::result_out_of_range) {
    index = std::numeric_limits<int>::max();
  }
  const std::lock_guard lock(m_cameraIdMutex);
  m_cameraId.assign(id, end);
  *cameraIndex = static_cast<unsigned int>(index);
  return true;
}
