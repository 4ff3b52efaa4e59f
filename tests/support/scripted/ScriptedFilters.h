// Filters of the scripted platform: a camera's capture filter and the sample grabber, with their pins.
#pragma once

#include <mutex>
#include <vector>

#include "support/scripted/ScriptedObject.h"

namespace scripted {

class Filter;

class FilterPin : public Object<IPin, IAMStreamConfig> {
 public:
  FilterPin(Filter* filter, const std::string& filterName, Pin description);

  HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* info) override;
  HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* direction) override;
  HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** enumerator) override;
  HRESULT STDMETHODCALLTYPE SetFormat(AM_MEDIA_TYPE* type) override;
  HRESULT STDMETHODCALLTYPE GetFormat(AM_MEDIA_TYPE** type) override;

  const Pin& Description() const { return m_description; }
  Filter* Owner() const { return m_filter; }
  // The filter is being destroyed; references to the pin may outlive it.
  void DetachFromFilter() { m_filter = nullptr; }
  FilterPin* MakeLentCopy() const;

 protected:
  void* Find(REFIID iid) override;
  void* FindInLentCopy(REFIID iid) override { return MakeLentCopy()->Find(iid); }

 private:
  // A pin without a filter.
  FilterPin(const std::string& name, Pin description);

  MediaType CurrentFormat() const;

  Filter* m_filter;
  Pin m_description;
};

// Settings of the sample grabber.
struct GrabberSettings {
  GUID majorType{};
  GUID subType{};
  GUID formatType{};
  ISampleGrabberCB* callback = nullptr;
  LONG method = -1;
  bool buffers = false;
  bool oneShot = false;
};

class Filter : public Object<IBaseFilter> {
 public:
  Filter(const std::string& name, const std::vector<Pin>& pins);

  HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** enumerator) override;

  // Null for other filters than the sample grabber.
  virtual const GrabberSettings* Grabber() const { return nullptr; }
  // Returns a copy without pins.
  Filter* MakeLentCopy() const;

 protected:
  ~Filter() override;
  void ReleaseParts() override;

 private:
  std::vector<FilterPin*> m_pins;  // a null entry for a null pin
};

// Creates an object of CLSID_SampleGrabber with one input and one output pin. Lent unless the answer is S_OK.
IBaseFilter* MakeSampleGrabber(const Answer& answer);

}  // namespace scripted
