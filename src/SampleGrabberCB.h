// The sample grabber's callback object: the producer end of the frame path.
//
// It is a member of CameraOperator and lives as long as that. Its count starts with the owner's reference,
// which is never released, so the graph's references never destroy it.
#pragma once

#include <atomic>

#include "DirectShow.h"

class SampleGrabberCB : public ISampleGrabberCB {
 public:
  SampleGrabberCB() = default;
  SampleGrabberCB(const SampleGrabberCB&) = delete;
  SampleGrabberCB& operator=(const SampleGrabberCB&) = delete;

  // Answers IID_ISampleGrabberCB and IID_IUnknown: S_OK with a reference, E_NOINTERFACE, or E_INVALIDARG
  // (not E_POINTER) for a null out pointer.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;

  // Both answer S_OK in every case, so that the graph never stops because of them. Samples are ignored;
  // buffers go to CameraOperator::PushFrame, which may wait. On the graph's streaming thread.
  HRESULT STDMETHODCALLTYPE SampleCB(double sampleTime, IMediaSample* sample) override;
  HRESULT STDMETHODCALLTYPE BufferCB(double sampleTime, BYTE* buffer, LONG bufferLen) override;

  virtual ~SampleGrabberCB();

 private:
  std::atomic<ULONG> refCount{1};
};
