// Names one capture device, and makes its filter.
#pragma once

#include "com/ComObject.h"
#include "devices/DeviceProvider.h"

class CaptureMoniker : public ComObject<IMoniker> {
 public:
  explicit CaptureMoniker(CaptureDevice device) : m_device(std::move(device)) {}

  // A new filter each time. The device itself is not touched.
  HRESULT STDMETHODCALLTYPE BindToObject(IBindCtx* context, IMoniker* left, REFIID iid,
                                         void** object) override;
  HRESULT STDMETHODCALLTYPE GetDisplayName(IBindCtx* context, IMoniker* left, LPOLESTR* name) override;

 private:
  CaptureDevice m_device;
};
