// Callback object of the sample grabber: the producer end of the frame path.
//
// A member of CameraOperator. Its reference count includes the owner's reference, which is never released, so
// that the graph's references never delete it.
#pragma once

#include <atomic>

#include "DirectShow.h"

class SampleGrabberCB : public ISampleGrabberCB {
 public:
  SampleGrabberCB() = default;
  SampleGrabberCB(const SampleGrabberCB&) = delete;
  SampleGrabberCB& operator=(const SampleGrabberCB&) = delete;

  // Supports IID_ISampleGrabberCB and IID_IUnknown. Returns E_INVALIDARG (not E_POINTER) for a null out.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;

  // Called on the graph's streaming thread. Both always return S_OK, so that they never stop the graph.
  // SampleCB ignores the sample; BufferCB calls CameraOperator::PushFrame, which may wait.
  HRESULT STDMETHODCALLTYPE SampleCB(double sampleTime, IMediaSample* sample) override;
  HRESULT STDMETHODCALLTYPE BufferCB(double sampleTime, BYTE* buffer, LONG bufferLen) override;

  virtual ~SampleGrabberCB();

 private:
  std::atomic<ULONG> refCount{1};
};
