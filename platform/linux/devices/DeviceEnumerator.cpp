#include "devices/DeviceEnumerator.h"

#include "com/Enumerator.h"
#include "devices/CaptureMoniker.h"

namespace {

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
