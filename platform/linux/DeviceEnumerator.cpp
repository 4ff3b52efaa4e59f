#include "DeviceEnumerator.h"

#include <algorithm>

#include "CaptureFilter.h"
#include "DeviceTree.h"
#include "Enumerator.h"

namespace {

class CaptureMoniker : public ComObject<IMoniker> {
 public:
  explicit CaptureMoniker(CaptureDevice device) : m_device(std::move(device)) {}

  HRESULT STDMETHODCALLTYPE BindToObject(IBindCtx* /*context*/, IMoniker* /*left*/, REFIID iid,
                                         void** object) override {
    if (object == nullptr) {
      return E_POINTER;
    }
    *object = nullptr;
    return Guarded([&] {
      auto source = m_device.makeSource();
      return source == nullptr ? E_FAIL
                               : MakeObject<CaptureFilter>(std::move(source))->QueryInterface(iid, object);
    });
  }

  HRESULT STDMETHODCALLTYPE GetDisplayName(IBindCtx* /*context*/, IMoniker* /*left*/,
                                           LPOLESTR* name) override {
    if (name == nullptr) {
      return E_POINTER;
    }
    const std::string& text = m_device.displayName;
    *name = static_cast<LPOLESTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(WCHAR)));
    if (*name == nullptr) {
      return E_OUTOFMEMORY;
    }
    // Display names are plain ASCII.
    WCHAR* const end = std::transform(text.begin(), text.end(), *name, [](char c) {
      return static_cast<WCHAR>(static_cast<unsigned char>(c));
    });
    *end = L'\0';
    return S_OK;
  }

 private:
  CaptureDevice m_device;
};

class MonikerEnumerator : public Enumerator<IEnumMoniker, IMoniker, CaptureDevice> {
 public:
  using Enumerator::Enumerator;

  HRESULT STDMETHODCALLTYPE Reset() override {
    StartOver();
    return S_OK;
  }

 protected:
  HRESULT HandOutItem(CaptureDevice& device, IMoniker** out) override {
    return HandOut(MakeObject<CaptureMoniker>(device), out);
  }
};

}  // namespace

HRESULT STDMETHODCALLTYPE DeviceEnumerator::CreateClassEnumerator(REFCLSID category,
                                                                  IEnumMoniker** enumerator,
                                                                  DWORD /*flags*/) {
  if (enumerator == nullptr) {
    return E_POINTER;
  }
  *enumerator = nullptr;
  if (!(category == CLSID_VideoInputDeviceCategory)) {
    return S_FALSE;
  }
  return Guarded([&] {
    std::vector<CaptureDevice> devices = CurrentDeviceTree()->CaptureDevices();
    return devices.empty() ? S_FALSE : HandOut(MakeObject<MonikerEnumerator>(std::move(devices)), enumerator);
  });
}
