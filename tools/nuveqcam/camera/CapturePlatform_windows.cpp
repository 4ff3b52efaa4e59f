#include "camera/CapturePlatform.h"

#include <memory>

#include "DirectShow.h"
#include "cli/Failure.h"
#include "cli/Text.h"
#include "cli/WideText.h"
#include "com/ComPtr.h"
#include "devices/BuiltInCamera.h"
#include "devices/UsbDevices.h"

namespace nuveqcam {
namespace {

struct TaskMemoryFreer {
  void operator()(WCHAR* text) const { CoTaskMemFree(text); }
};

class Variant {
 public:
  Variant() { VariantInit(&m_value); }
  Variant(const Variant&) = delete;
  Variant& operator=(const Variant&) = delete;
  ~Variant() { VariantClear(&m_value); }

  VARIANT* Put() { return &m_value; }
  std::string Text() const {
    return m_value.vt == VT_BSTR && m_value.bstrVal != nullptr ? ToUtf8(m_value.bstrVal) : std::string();
  }

 private:
  VARIANT m_value{};
};

std::string DisplayNameOf(IMoniker& moniker) {
  ComPtr<IBindCtx> context;
  LPOLESTR text = nullptr;
  if (CreateBindCtx(0, context.Put()) != S_OK ||
      moniker.GetDisplayName(context.Get(), nullptr, &text) != S_OK) {
    return {};
  }
  const std::unique_ptr<WCHAR, TaskMemoryFreer> owner(text);
  return text != nullptr ? ToUtf8(text) : std::string();
}

std::string FriendlyNameOf(IMoniker& moniker) {
  ComPtr<IPropertyBag> properties;
  Variant name;
  if (moniker.BindToStorage(nullptr, nullptr, IID_IPropertyBag, properties.PutVoid()) != S_OK ||
      !properties || properties->Read(L"FriendlyName", name.Put(), nullptr) != S_OK) {
    return {};
  }
  return name.Text();
}

struct NamedMoniker {
  std::string name;
  std::string displayName;
};

std::vector<NamedMoniker> EnumerateCaptureDevices() {
  std::vector<NamedMoniker> found;
  ComPtr<ICreateDevEnum> enumerator;
  ComPtr<IEnumMoniker> monikers;
  if (CoCreateInstance(CLSID_SystemDeviceEnum, nullptr, CLSCTX_INPROC_SERVER, IID_ICreateDevEnum,
                       enumerator.PutVoid()) != S_OK ||
      !enumerator ||
      // S_FALSE with a null pointer if there are none.
      enumerator->CreateClassEnumerator(CLSID_VideoInputDeviceCategory, monikers.Put(), 0) != S_OK ||
      !monikers) {
    return found;
  }
  ComPtr<IMoniker> moniker;
  while (monikers->Next(1, moniker.Put(), nullptr) == S_OK && moniker) {
    found.push_back({FriendlyNameOf(*moniker.Get()), DisplayNameOf(*moniker.Get())});
  }
  return found;
}

}  // namespace

// The camera library initializes COM for the same apartment type.
SystemSession::SystemSession() {
  if (const HRESULT result = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); result < 0) {
    throw Failure(ExitCode::kUnexpected, "cannot initialize COM: " + ComMessage(result));
  }
}

SystemSession::~SystemSession() { CoUninitialize(); }

void UseSimulatedPc(const std::string& /*clip*/) {
  throw Failure(ExitCode::kUsage, "--simulated is not supported on this system");
}

bool IsCameraDisconnected() { return false; }

std::optional<CaptureCounters> LatestCaptureCounters() { return std::nullopt; }

std::vector<CaptureDeviceInfo> ListCaptureDevices() {
  const std::vector<NamedMoniker> monikers = EnumerateCaptureDevices();
  std::vector<std::string> displayNames;
  displayNames.reserve(monikers.size());
  for (const NamedMoniker& moniker : monikers) {
    displayNames.push_back(moniker.displayName);
  }
  const std::vector<std::string> reasons = ExclusionReasons(displayNames, ListUsbDevices());
  std::vector<CaptureDeviceInfo> devices;
  devices.reserve(monikers.size());
  for (std::size_t i = 0; i < monikers.size(); ++i) {
    devices.push_back({monikers[i].name, DevicePathIn(monikers[i].displayName), reasons[i]});
  }
  return devices;
}

}  // namespace nuveqcam
