// The filter that shows its callback object every frame.
#pragma once

#include <mutex>

#include "graph/GrabberPin.h"

// Settings may change at any time, from any thread; they hold from the next frame on.
class SampleGrabber : public ComObject<IBaseFilter, ISampleGrabber> {
 public:
  SampleGrabber();

  HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** enumerator) override;

  HRESULT STDMETHODCALLTYPE SetOneShot(BOOL oneShot) override;
  // Only the subtype matters; a major type other than video and all zero is refused.
  HRESULT STDMETHODCALLTYPE SetMediaType(const AM_MEDIA_TYPE* type) override;
  // Taken and without effect: nothing here asks for the buffered sample.
  HRESULT STDMETHODCALLTYPE SetBufferSamples(BOOL bufferThem) override;
  HRESULT STDMETHODCALLTYPE SetCallback(ISampleGrabberCB* callback, LONG whichMethod) override;

  GUID WantedSubtype();
  // Shows the frame to the callback. True when it completes the graph.
  bool Show(double time, BYTE* data, LONG size);

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
