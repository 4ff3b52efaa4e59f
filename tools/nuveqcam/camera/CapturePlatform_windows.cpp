#include "camera/CapturePlatform.h"

#include <memory>

#include "DirectShow.h"
#include "cli/Failure.h"
#include "cli/Text.h"
#include "cli/WideText.h"
#include "com/ComPtr.h"
#include "devices/BuiltInCamera.h"
#include "devices/UsbDevices.h"

namespace {

struct FreeTaskMemory {
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
    return m_value.vt == VT_BSTR && m_value.bstrVal != nullptr ? Utf8(m_value.bstrVal) : std::string();
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
  const std::unique_ptr<WCHAR, FreeTaskMemory> owner(text);
  return text != nullptr ? Utf8(text) : std::string();
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

struct CaptureDevice {
  std::string name;
  std::string displayName;
};

std::vector<CaptureDevice> CaptureDevices() {
  std::vector<CaptureDevice> found;
  ComPtr<ICreateDevEnum> devices;
  ComPtr<IEnumMoniker> monikers;
  if (CoCreateInstance(CLSID_SystemDeviceEnum, nullptr, CLSCTX_INPROC_SERVER, IID_ICreateDevEnum,
                       devices.PutVoid()) != S_OK ||
      !devices ||
      // S_FALSE, with a null enumerator, says that there are none.
      devices->CreateClassEnumerator(CLSID_VideoInputDeviceCategory, monikers.Put(), 0) != S_OK ||
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

// The camera library's objects live in the thread's apartment, whose kind it chooses itself, as this one.
SystemSession::SystemSession(bool /*isVerbose*/) {
  if (const HRESULT result = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); result < 0) {
    throw Failure(ExitCode::kUnexpected,
                  "cannot use COM, through which cameras are reached: " + ComMessage(result));
  }
}

SystemSession::~SystemSession() { CoUninitialize(); }

void UseSimulatedPc(const std::string& /*clip*/) {
  throw Failure(ExitCode::kUsage, "there is no simulated PC on this system; leave --simulated out");
}

bool IsCameraDisconnected() { return false; }

std::vector<CaptureDeviceInfo> ListCaptureDevices() {
  const std::vector<CaptureDevice> devices = CaptureDevices();
  std::vector<std::string> displayNames;
  displayNames.reserve(devices.size());
  for (const CaptureDevice& device : devices) {
    displayNames.push_back(device.displayName);
  }
  const std::vector<std::string> reasons = WhyNotBuiltIn(displayNames, PresentUsbDevices());
  std::vector<CaptureDeviceInfo> seen;
  seen.reserve(devices.size());
  for (std::size_t i = 0; i < devices.size(); ++i) {
    seen.push_back({devices[i].name, PlaceIn(devices[i].displayName), reasons[i]});
  }
  return seen;
}
