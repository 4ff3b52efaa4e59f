// The sample grabber: passes every sample to its callback object. In one-shot mode, the first sample
// completes the graph, and the callbacks continue. Does not keep samples.
#pragma once

#include "support/windows/Pin.h"

namespace fixtures {

class GrabberFilter;

class GrabberInputPin : public InputPin {
 public:
  explicit GrabberInputPin(GrabberFilter& grabber);

 protected:
  bool Accepts(const AM_MEDIA_TYPE& type) override;
  HRESULT Process(IMediaSample& sample) override;

 private:
  GrabberFilter& m_grabber;
};

// Offers no types: samples end at the grabber. Users expect the pin to exist.
class GrabberOutputPin : public OutputPin {
 public:
  explicit GrabberOutputPin(Filter& filter) : OutputPin(filter, L"Out") {}

 protected:
  std::size_t SampleSize(const AM_MEDIA_TYPE& /*type*/) override { return 0; }
};

// Settings may change at any time, from any thread; they apply from the next sample.
class GrabberFilter : public WithInterface<WithInterface<Filter, ISampleGrabber>, IAMFilterMiscFlags> {
 public:
  GrabberFilter();

  HRESULT STDMETHODCALLTYPE SetOneShot(BOOL isOneShot) override;
  // The type that the input pin accepts; GUID_NULL in a field accepts any value.
  HRESULT STDMETHODCALLTYPE SetMediaType(const AM_MEDIA_TYPE* type) override;
  HRESULT STDMETHODCALLTYPE GetConnectedMediaType(AM_MEDIA_TYPE* type) override;
  HRESULT STDMETHODCALLTYPE SetBufferSamples(BOOL isBuffering) override;
  HRESULT STDMETHODCALLTYPE GetCurrentBuffer(LONG* size, LONG* buffer) override;
  HRESULT STDMETHODCALLTYPE GetCurrentSample(IMediaSample** sample) override;
  HRESULT STDMETHODCALLTYPE SetCallback(ISampleGrabberCB* callback, LONG method) override;

  // The graph counts only renderers when it waits for completion.
  ULONG STDMETHODCALLTYPE GetMiscFlags() override { return AM_FILTER_MISC_FLAGS_IS_RENDERER; }

  bool Accepts(const AM_MEDIA_TYPE& type);
  HRESULT Process(IMediaSample& sample);

 protected:
  std::vector<IPin*> Pins() override { return {&m_input, &m_output}; }
  HRESULT Start() override;

 private:
  struct Settings {
    bool isOneShot = false;
    ComPtr<ISampleGrabberCB> callback;
    LONG method = 0;
  };

  GrabberInputPin m_input;
  GrabberOutputPin m_output;
  std::atomic<bool> m_isComplete{false};

  std::mutex m_mutex;  // protects the members below; not held during callbacks
  Settings m_settings;
  MediaType m_wanted;
};

}  // namespace fixtures
