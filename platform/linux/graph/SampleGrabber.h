// The sample grabber: a filter that passes each frame to a callback object.
#pragma once

#include <mutex>

#include "graph/StreamInterfaces.h"

namespace graph {

class SampleGrabber;

class GrabberPin : public com::ComPart<IPin, IFrameSink> {
 public:
  explicit GrabberPin(SampleGrabber& owner);

  HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* info) override;
  HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* direction) override;
  // E_NOTIMPL: an input pin has no types of its own.
  HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** enumerator) override;

  GUID STDMETHODCALLTYPE WantedSubtype() override;
  HRESULT STDMETHODCALLTYPE AcquireStream() override;
  void STDMETHODCALLTYPE ReleaseStream() override;
  bool STDMETHODCALLTYPE Receive(double time, BYTE* data, LONG size) override;

 private:
  SampleGrabber& m_grabber;
  std::mutex m_mutex;
  bool m_isAcquired = false;
};

// Settings may be changed at any time from any thread and apply from the next frame on.
class SampleGrabber : public com::ComObject<IBaseFilter, ISampleGrabber> {
 public:
  SampleGrabber();

  HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** enumerator) override;

  HRESULT STDMETHODCALLTYPE SetOneShot(BOOL oneShot) override;
  // Uses the subtype only. The major type must be video or all zero.
  HRESULT STDMETHODCALLTYPE SetMediaType(const AM_MEDIA_TYPE* type) override;
  // Accepted without effect: there is no function to read a buffered sample.
  HRESULT STDMETHODCALLTYPE SetBufferSamples(BOOL bufferThem) override;
  HRESULT STDMETHODCALLTYPE SetCallback(ISampleGrabberCB* callback, LONG whichMethod) override;

  GUID WantedSubtype();
  // Passes the frame to the callback. Returns true if it completes the graph.
  bool Deliver(double time, BYTE* data, LONG size);

 private:
  struct Settings {
    GUID subtype{};
    bool isOneShot = false;
    ComPtr<ISampleGrabberCB> callback;
    LONG method = 0;
  };

  GrabberPin m_pin;
  std::mutex m_mutex;
  Settings m_settings;
};

}  // namespace graph
