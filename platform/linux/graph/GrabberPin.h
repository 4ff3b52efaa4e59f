// The input pin of the sample grabber.
#pragma once

#include <mutex>

#include "com/ComObject.h"

class SampleGrabber;

class GrabberPin : public ComPart<IPin, IFrameSink> {
 public:
  explicit GrabberPin(SampleGrabber& owner);

  HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* info) override;
  HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* direction) override;
  // An input pin has no types of its own.
  HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** enumerator) override;

  GUID STDMETHODCALLTYPE WantedSubtype() override;
  HRESULT STDMETHODCALLTYPE Claim() override;
  void STDMETHODCALLTYPE Unclaim() override;
  bool STDMETHODCALLTYPE Receive(double time, BYTE* data, LONG size) override;

 private:
  SampleGrabber& m_grabber;
  std::mutex m_mutex;
  bool m_isClaimed = false;
};
