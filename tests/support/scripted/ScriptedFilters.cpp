#include "support/scripted/ScriptedFilters.h"

#include <algorithm>
#include <cstring>

#include "support/scripted/ScriptedTaskMemory.h"

namespace scripted {
namespace {

class PinEnumerator : public Object<IEnumPins> {
 public:
  PinEnumerator(const std::string& filterName, std::vector<FilterPin*> pins)
      : Object(filterName + " pin enumerator"), m_pins(std::move(pins)) {
    for (FilterPin* const pin : m_pins) {
      if (pin != nullptr) {
        pin->AddRef();
      }
    }
  }

  HRESULT STDMETHODCALLTYPE Next(ULONG count, IPin** pins, ULONG* fetched) override {
    const Answer answer = Enter("IEnumPins::Next", Name());
    *pins = nullptr;
    if (count != 1 || fetched != nullptr) {
      Platform::Get().NoteMisuse("IEnumPins::Next is called for one pin, without a count");
    }
    if (!ReturnsNext(answer)) {
      return answer.hr;
    }
    if (m_next == m_pins.size()) {
      return S_FALSE;
    }
    return CopyTo(answer, m_pins[m_next++], pins);
  }

 protected:
  ~PinEnumerator() override { ReleasePins(); }
  void ReleaseParts() override { ReleasePins(); }

 private:
  void ReleasePins() {
    for (FilterPin* const pin : m_pins) {
      if (pin != nullptr) {
        pin->Release();
      }
    }
    m_pins.clear();
  }

  std::vector<FilterPin*> m_pins;
  std::size_t m_next = 0;
};

class MediaTypeEnumerator : public Object<IEnumMediaTypes> {
 public:
  MediaTypeEnumerator(const std::string& pinName, std::vector<MediaType> types)
      : Object(pinName + " media type enumerator"), m_types(std::move(types)) {}

  HRESULT STDMETHODCALLTYPE Next(ULONG count, AM_MEDIA_TYPE** types, ULONG* fetched) override {
    const Answer answer = Enter("IEnumMediaTypes::Next", Name());
    *types = nullptr;
    if (count != 1 || fetched != nullptr) {
      Platform::Get().NoteMisuse("IEnumMediaTypes::Next is called for one media type, without a count");
    }
    if (!ReturnsNext(answer)) {
      return answer.hr;
    }
    if (m_next == m_types.size()) {
      return S_FALSE;
    }
    const MediaType& type = m_types[m_next++];
    if (!answer.null && !type.isNull) {
      *types = MakeMediaType(answer, type, "enumerated media type");
    }
    return answer.hr;
  }

 private:
  std::vector<MediaType> m_types;
  std::size_t m_next = 0;
};

class SampleGrabber : public Filter {
 public:
  SampleGrabber()
      : Filter("grabber", {{"in", PINDIR_INPUT, {}}, {"out", PINDIR_OUTPUT, {}}}), m_settings(*this) {}

  const GrabberSettings* Grabber() const override { return &m_settings.settings; }

 protected:
  ~SampleGrabber() override {
    if (m_settings.settings.callback != nullptr) {
      m_settings.settings.callback->Release();
    }
  }

  void* Find(REFIID iid) override {
    return IsEqualGUID(iid, IID_ISampleGrabber) ? static_cast<ISampleGrabber*>(&m_settings) : nullptr;
  }
  void* FindInLentCopy(REFIID iid) override { return Lent(new SampleGrabber)->Find(iid); }

 private:
  // The grabber's second interface. Shares the filter's reference count.
  class Settings : public Whole<ISampleGrabber> {
   public:
    explicit Settings(SampleGrabber& owner) : m_owner(owner) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
      return m_owner.QueryInterface(iid, out);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return m_owner.AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return m_owner.Release(); }

    HRESULT STDMETHODCALLTYPE SetOneShot(BOOL oneShot) override {
      const Answer answer = m_owner.Enter("ISampleGrabber::SetOneShot", std::to_string(oneShot));
      settings.oneShot = answer.hr == S_OK && oneShot != FALSE;
      return answer.hr;
    }

    HRESULT STDMETHODCALLTYPE SetMediaType(const AM_MEDIA_TYPE* type) override {
      const Answer answer =
          m_owner.Enter("ISampleGrabber::SetMediaType",
                        NameOf(type->majortype) + ", " + NameOf(type->subtype) + ", " +
                            NameOf(type->formattype) + ", cbFormat " + std::to_string(type->cbFormat));
      if (type->pbFormat != nullptr || type->pUnk != nullptr || type->lSampleSize != 0 ||
          type->bFixedSizeSamples != FALSE || type->bTemporalCompression != FALSE) {
        Platform::Get().NoteMisuse("the grabber's media type carries more than its three identifiers");
      }
      settings.majorType = type->majortype;
      settings.subType = type->subtype;
      settings.formatType = type->formattype;
      return answer.hr;
    }

    HRESULT STDMETHODCALLTYPE SetBufferSamples(BOOL bufferThem) override {
      const Answer answer = m_owner.Enter("ISampleGrabber::SetBufferSamples", std::to_string(bufferThem));
      settings.buffers = bufferThem != FALSE;
      return answer.hr;
    }

    HRESULT STDMETHODCALLTYPE SetCallback(ISampleGrabberCB* callback, LONG whichMethod) override {
      const Answer answer = m_owner.Enter("ISampleGrabber::SetCallback", std::to_string(whichMethod));
      if (answer.hr == S_OK) {
        // Queries for the callback interface, as the sample grabber of Windows does.
        void* found = nullptr;
        if (callback->QueryInterface(IID_ISampleGrabberCB, &found) != S_OK) {
          return E_NOINTERFACE;
        }
        settings.callback = static_cast<ISampleGrabberCB*>(found);
        settings.method = whichMethod;
        Platform::Get().NoteGrabberCallback(settings.callback);
      }
      return answer.hr;
    }

    GrabberSettings settings;

   private:
    SampleGrabber& m_owner;
  };

  Settings m_settings;
};

}  // namespace

FilterPin::FilterPin(Filter* filter, const std::string& filterName, Pin description)
    : Object(filterName + "." + description.name), m_filter(filter), m_description(std::move(description)) {}

FilterPin::FilterPin(const std::string& name, Pin description)
    : Object(name), m_filter(nullptr), m_description(std::move(description)) {}

FilterPin* FilterPin::MakeLentCopy() const { return Lent(new FilterPin(Name(), m_description)); }

void* FilterPin::Find(REFIID iid) {
  const bool configurable = m_description.direction == PINDIR_OUTPUT;
  return configurable && IsEqualGUID(iid, IID_IAMStreamConfig) ? static_cast<IAMStreamConfig*>(this)
                                                               : nullptr;
}

HRESULT STDMETHODCALLTYPE FilterPin::QueryPinInfo(PIN_INFO* info) {
  const Answer answer = Enter("IPin::QueryPinInfo", Name());
  *info = {};
  info->dir = m_description.direction;
  return CopyTo<IBaseFilter>(answer, m_filter, &info->pFilter);
}

HRESULT STDMETHODCALLTYPE FilterPin::QueryDirection(PIN_DIRECTION* direction) {
  const Answer answer = Enter("IPin::QueryDirection", Name());
  // SucceedsWithNull: the output is not written.
  if (answer.hr == S_OK && !answer.null) {
    *direction = m_description.direction;
  }
  return answer.hr;
}

HRESULT STDMETHODCALLTYPE FilterPin::EnumMediaTypes(IEnumMediaTypes** enumerator) {
  const Answer answer = Enter("IPin::EnumMediaTypes", Name());
  return StoreNew(answer, enumerator,
                  [&] { return new MediaTypeEnumerator(Name(), m_description.mediaTypes); });
}

MediaType FilterPin::CurrentFormat() const {
  return m_description.mediaTypes.empty() ? MediaType{} : m_description.mediaTypes.front();
}

HRESULT STDMETHODCALLTYPE FilterPin::GetFormat(AM_MEDIA_TYPE** type) {
  const Answer answer = Enter("IAMStreamConfig::GetFormat", Name());
  *type = answer.null ? nullptr : MakeMediaType(answer, CurrentFormat(), "current media type");
  return answer.hr;
}

HRESULT STDMETHODCALLTYPE FilterPin::SetFormat(AM_MEDIA_TYPE* type) {
  // Copies the part of the header that the block holds.
  const std::size_t length = std::min<std::size_t>(CurrentFormat().formatSize, sizeof(VIDEOINFOHEADER));
  VIDEOINFOHEADER header{};
  std::memcpy(&header, type->pbFormat, length);
  // The current format, except for the fields that the caller may set.
  VIDEOINFOHEADER wanted = MakeVideoInfo(CurrentFormat());
  wanted.bmiHeader.biWidth = header.bmiHeader.biWidth;
  wanted.bmiHeader.biHeight = header.bmiHeader.biHeight;
  wanted.AvgTimePerFrame = header.AvgTimePerFrame;
  constexpr ULONG kSampleSize = 19;
  if (std::memcmp(&wanted, &header, length) != 0 || !IsEqualGUID(type->majortype, MEDIATYPE_Video) ||
      !IsEqualGUID(type->formattype, FORMAT_VideoInfo) || type->bFixedSizeSamples != TRUE ||
      type->bTemporalCompression != TRUE || type->lSampleSize != kSampleSize ||
      type->cbFormat != CurrentFormat().SizeField()) {
    Platform::Get().NoteMisuse("SetFormat changes more than size, interval and subtype");
  }
  return Enter("IAMStreamConfig::SetFormat",
               Name() + ", " + NameOf(type->subtype) + ", " + std::to_string(header.bmiHeader.biWidth) + "x" +
                   std::to_string(header.bmiHeader.biHeight) + ", " + std::to_string(header.AvgTimePerFrame))
      .hr;
}

Filter::Filter(const std::string& name, const std::vector<Pin>& pins) : Object(name) {
  for (const Pin& pin : pins) {
    m_pins.push_back(pin.isNull ? nullptr : new FilterPin(this, name, pin));
  }
}

Filter::~Filter() { Filter::ReleaseParts(); }

void Filter::ReleaseParts() {
  for (FilterPin* const pin : m_pins) {
    if (pin != nullptr) {
      pin->DetachFromFilter();
      pin->Release();
    }
  }
  m_pins.clear();
}

Filter* Filter::MakeLentCopy() const { return Lent(new Filter(Name(), {})); }

HRESULT STDMETHODCALLTYPE Filter::EnumPins(IEnumPins** enumerator) {
  const Answer answer = Enter("IBaseFilter::EnumPins", Name());
  return StoreNew(answer, enumerator, [&] { return new PinEnumerator(Name(), m_pins); });
}

IBaseFilter* MakeSampleGrabber(const Answer& answer) { return LentUnlessOk(answer, new SampleGrabber); }

}  // namespace scripted
