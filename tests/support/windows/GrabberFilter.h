// The sample grabber: shows its callback object every sample, and ends the graph's wait at the first one
// where it is asked for one shot.
#pragma once

#include "support/windows/Pin.h"

namespace fixtures {

class GrabberFilter;

class GrabberInput : public InputPin {
 public:
  explicit GrabberInput(GrabberFilter& grabber);

 protected:
  bool Accepts(const AM_MEDIA_TYPE& type) override;
  HRESULT Take(IMediaSample& sample) override;

 private:
  GrabberFilter& m_grabber;
};

// Samples end at the grabber; its output pin is there because a grabber has one, and offers nothing.
class GrabberOutput : public OutputPin {
 public:
  explicit GrabberOutput(Filter& filter) : OutputPin(filter, L"Out") {}

 protected:
  std::size_t SampleSize(const AM_MEDIA_TYPE& /*type*/) override { return 0; }
};

// The settings may change at any time, from any thread; they hold from the next sample on.
class GrabberFilter : public WithInterface<WithInterface<Filter, ISampleGrabber>, IAMFilterMiscFlags> {
 public:
  GrabberFilter();

  HRESULT STDMETHODCALLTYPE SetOneShot(BOOL isOneShot) override;
  // What the input pin accepts; parts that are all zero accept anything.
  HRESULT STDMETHODCALLTYPE SetMediaType(const AM_MEDIA_TYPE* type) override;
  HRESULT STDMETHODCALLTYPE GetConnectedMediaType(AM_MEDIA_TYPE* type) override;
  HRESULT STDMETHODCALLTYPE SetBufferSamples(BOOL isBuffering) override;
  HRESULT STDMETHODCALLTYPE GetCurrentBuffer(LONG* size, LONG* buffer) override;
  HRESULT STDMETHODCALLTYPE GetCurrentSample(IMediaSample** sample) override;
  HRESULT STDMETHODCALLTYPE SetCallback(ISampleGrabberCB* callback, LONG method) override;

  // The system waits for the completion of renderers only.
  ULONG STDMETHODCALLTYPE GetMiscFlags() override { return AM_FILTER_MISC_FLAGS_IS_RENDERER; }

  bool Accepts(const AM_MEDIA_TYPE& type);
  HRESULT Show(IMediaSample& sample);

 protected:
  std::vector<IPin*> Pins() override { return {&m_input, &m_output}; }
  HRESULT Start() override;

 private:
  struct Settings {
    bool isOneShot = false;
    bool isBuffering = false;
    ComPtr<ISampleGrabberCB> callback;
    LONG method = 0;
  };

  GrabberInput m_input;
  GrabberOutput m_output;
  std::atomic<bool> m_isComplete{false};

  std::mutex m_mutex;  // of everything below; not held while a sample is shown
  Settings m_settings;
  MediaType m_wanted;
  std::vector<BYTE> m_buffered;
  bool m_hasBuffered = false;
};

}  // namespace fixtures
