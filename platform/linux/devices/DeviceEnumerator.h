// Enumerates the PC's capture devices as monikers.
#pragma once

#include "com/ComObject.h"

namespace devices {

class DeviceEnumerator : public com::ComObject<ICreateDevEnum> {
 public:
  // Supports the category of video input devices. S_FALSE and null for an empty category and for any other
  // one.
  HRESULT STDMETHODCALLTYPE CreateClassEnumerator(REFCLSID category, IEnumMoniker** enumerator,
                                                  DWORD flags) override;
};

}  // namespace devices
