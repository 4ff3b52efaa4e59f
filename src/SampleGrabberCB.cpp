#include "SampleGrabberCB.h"

#include "CameraOperator.h"
#include "Log.h"

SampleGrabberCB::~SampleGrabberCB() { refCount = 0; }

HRESULT STDMETHODCALLTYPE SampleGrabberCB::QueryInterface(REFIID iid, void** out) {
  if (out == nullptr) {
    return E_INVALIDARG;
  }
  *out = nullptr;
  if (!IsEqualGUID(iid, IID_ISampleGrabberCB) && !IsEqualGUID(iid, IID_IUnknown)) {
    return E_NOINTERFACE;
  }
  *out = static_cast<ISampleGrabberCB*>(this);
  AddRef();
  return S_OK;
}

ULONG STDMETHODCALLTYPE SampleGrabberCB::AddRef() {
  ++refCount;
  return refCount;
}

ULONG STDMETHODCALLTYPE SampleGrabberCB::Release() {
  const ULONG left = --refCount;
  if (refCount == 0) {
    delete this;
  }
  return left;
}

HRESULT STDMETHODCALLTYPE SampleGrabberCB::SampleCB(double /*sampleTime*/, IMediaSample* /*sample*/) {
  return S_OK;
}

HRESULT STDMETHODCALLTYPE SampleGrabberCB::BufferCB(double /*sampleTime*/, BYTE* buffer, LONG bufferLen) try {
  if (bufferLen != 0) {
    CameraOperator::GetInstance().PushFrame(buffer, bufferLen);
  } else {
    CAMERA_LOG(ERROR_LOG_LEVEL, "SampleGrabberCB", 60, L"error buffer size", bufferLen,
               L"(SampleGrabberCB::BufferCB)");
  }
  return S_OK;
} catch (...) {
  // The streaming thread belongs to the graph: drop the frame and continue.
  return S_OK;
}
