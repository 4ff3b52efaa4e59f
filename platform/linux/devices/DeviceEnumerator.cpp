#include "devices/DeviceEnumerator.h"

#include <algorithm>

#include "com/Enumerator.h"
#include "devices/DeviceProvider.h"
#include "graph/CaptureFilter.h"

namespace devices {

namespace {

// Names one capture device and creates its filter.
class CaptureMoniker : public com::ComObject<IMoniker> {
 public:
  explicit CaptureMoniker(CaptureDevice device) : m_device(std::move(device)) {}

  // Creates a new filter at each call. Does not open the device.
  HRESULT STDMETHODCALLTYPE BindToObject(IBindCtx* /*context*/, IMoniker* /*left*/, REFIID iid,
                                         void** object) override {
    if (object == nullptr) {
      return E_POINTER;
    }
    *object = nullptr;
    return com::CatchToHresult([&] {
      auto source = m_device.makeSource();
      return source == nullptr
                 ? E_FAIL
                 : com::MakeComObject<graph::CaptureFilter>(std::move(source))->QueryInterface(iid, object);
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
    // Display names are ASCII.
    WCHAR* const end = std::transform(text.begin(), text.end(), *name, [](char c) {
      return static_cast<WCHAR>(static_cast<unsigned char>(c));
    });
    *end = L'\0';
    return S_OK;
  }

 private:
  CaptureDevice m_device;
};

class MonikerEnumerator : public com::Enumerator<IEnumMoniker, IMoniker, CaptureDevice> {
 public:
  using Enumerator::Enumerator;

  HRESULT STDMETHODCALLTYPE Reset() override {
    SeekTo(0);
    return S_OK;
  }

 protected:
  HRESULT CopyItem(const CaptureDevice& device, IMoniker** out) override {
    return com::CopyTo(com::MakeComObject<CaptureMoniker>(device), out);
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
  return com::CatchToHresult([&] {
    std::vector<CaptureDevice> devices = CurrentDeviceProvider()->CaptureDevices();
    return devices.empty()
               ? S_FALSE
               : com::CopyTo(com::MakeComObject<MonikerEnumerator>(std::move(devices)), enumerator);
  });
}

}  // namespace devices
