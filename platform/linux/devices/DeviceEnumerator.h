// Lists the PC's capture devices.
#pragma once

#include "com/ComObject.h"

class DeviceEnumerator : public ComObject<ICreateDevEnum> {
 public:
  // S_FALSE and null for a category without a device, and for every category but that of video inputs.
  HRESULT STDMETHODCALLTYPE CreateClassEnumerator(REFCLSID category, IEnumMoniker** enumerator,
                                                  DWORD flags) override;
};
