#include "support/windows/TestGraph.h"

#include <cstring>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace fixtures {
namespace {

constexpr std::chrono::seconds kTimeout{30};

std::string Narrow(const wchar_t* text) {
  std::string narrow;
  for (; *text != L'\0'; ++text) {
    narrow += static_cast<char>(*text);
  }
  return narrow;
}

struct FreeMediaType {
  void operator()(AM_MEDIA_TYPE* type) const {
    CoTaskMemFree(type->pbFormat);
    CoTaskMemFree(type);
  }
};

template <typename Interface>
ComPtr<Interface> Create(REFCLSID classId) {
  ComPtr<Interface> object;
  CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, __uuidof(Interface), object.PutVoid());
  return object;
}

template <typename Interface, typename Object>
ComPtr<Interface> Query(const ComPtr<Object>& object, REFIID iid) {
  ComPtr<Interface> found;
  if (object) {
    object->QueryInterface(iid, found.PutVoid());
  }
  return found;
}

}  // namespace

std::vector<ComPtr<IMoniker>> CaptureDevices() {
  std::vector<ComPtr<IMoniker>> devices;
  const auto enumerator = Create<ICreateDevEnum>(CLSID_SystemDeviceEnum);
  ComPtr<IEnumMoniker> monikers;
  if (!enumerator ||
      enumerator->CreateClassEnumerator(CLSID_VideoInputDeviceCategory, monikers.Put(), 0) != S_OK) {
    return devices;
  }
  ComPtr<IMoniker> moniker;
  while (monikers->Next(1, moniker.Put(), nullptr) == S_OK) {
    devices.push_back(moniker);
  }
  return devices;
}

std::string DisplayName(IMoniker& moniker) {
  ComPtr<IBindCtx> context;
  LPOLESTR text = nullptr;
  if (FAILED(CreateBindCtx(0, context.Put())) ||
      FAILED(moniker.GetDisplayName(context.Get(), nullptr, &text))) {
    return {};
  }
  std::string name = Narrow(text);
  CoTaskMemFree(text);
  return name;
}

std::string Property(IMoniker& moniker, const wchar_t* name) {
  ComPtr<IPropertyBag> bag;
  VARIANT value{};
  VariantInit(&value);
  if (FAILED(moniker.BindToStorage(nullptr, nullptr, IID_IPropertyBag, bag.PutVoid())) ||
      FAILED(bag->Read(name, &value, nullptr))) {
    return {};
  }
  std::string text = value.vt == VT_BSTR ? Narrow(value.bstrVal) : std::string();
  VariantClear(&value);
  return text;
}

ComPtr<IBaseFilter> CreateFilter(IMoniker& moniker) {
  ComPtr<IBaseFilter> filter;
  moniker.BindToObject(nullptr, nullptr, IID_IBaseFilter, filter.PutVoid());
  return filter;
}

ComPtr<IBaseFilter> CreateFilterNamed(const std::string& displayName) {
  for (const ComPtr<IMoniker>& moniker : CaptureDevices()) {
    if (DisplayName(*moniker.Get()) == displayName) {
      return CreateFilter(*moniker.Get());
    }
  }
  return {};
}

ComPtr<IPin> FindPin(IBaseFilter& filter, PIN_DIRECTION direction) {
  ComPtr<IEnumPins> pins;
  if (FAILED(filter.EnumPins(pins.Put()))) {
    return {};
  }
  ComPtr<IPin> pin;
  while (pins->Next(1, pin.Put(), nullptr) == S_OK) {
    PIN_DIRECTION found{};
    if (SUCCEEDED(pin->QueryDirection(&found)) && found == direction) {
      return pin;
    }
  }
  return {};
}

HRESULT STDMETHODCALLTYPE FrameRecorder::QueryInterface(REFIID iid, void** out) {
  const bool isKnown = iid == IID_ISampleGrabberCB || iid == IID_IUnknown;
  *out = isKnown ? static_cast<ISampleGrabberCB*>(this) : nullptr;
  return isKnown ? S_OK : E_NOINTERFACE;
}

HRESULT STDMETHODCALLTYPE FrameRecorder::SampleCB(double time, IMediaSample* sample) {
  BYTE* bytes = nullptr;
  const HRESULT hr = sample->GetPointer(&bytes);
  return FAILED(hr) ? hr : BufferCB(time, bytes, sample->GetActualDataLength());
}

HRESULT STDMETHODCALLTYPE FrameRecorder::BufferCB(double time, BYTE* buffer, LONG length) {
  std::function<void()> action;
  {
    const std::lock_guard lock(m_mutex);
    if (m_frames.size() < kMaxFrames) {
      m_frames.emplace_back(buffer, buffer + length);
      m_times.push_back(time);
    }
    ++m_count;
    action = m_callbackAction;
  }
  m_changed.notify_all();
  if (action) {
    action();
  }
  return S_OK;
}

bool FrameRecorder::WaitForFrames(std::size_t count) {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, kTimeout, [&] { return m_count >= count; });
}

std::vector<std::vector<BYTE>> FrameRecorder::Frames() const {
  const std::lock_guard lock(m_mutex);
  return m_frames;
}

std::vector<double> FrameRecorder::Times() const {
  const std::lock_guard lock(m_mutex);
  return m_times;
}

std::size_t FrameRecorder::Count() const {
  const std::lock_guard lock(m_mutex);
  return m_count;
}

void FrameRecorder::SetCallbackAction(std::function<void()> action) {
  const std::lock_guard lock(m_mutex);
  m_callbackAction = std::move(action);
}

TestGraph::TestGraph(const std::string& cameraName, FrameRecorder& recorder, REFGUID wanted)
    : m_graph(Create<IGraphBuilder>(CLSID_FilterGraph)),
      m_control(Query<IMediaControl>(m_graph, IID_IMediaControl)),
      m_event(Query<IMediaEvent>(m_graph, IID_IMediaEvent)),
      m_camera(CreateFilterNamed(cameraName)),
      m_grabberFilter(Create<IBaseFilter>(CLSID_SampleGrabber)),
      m_grabber(Query<ISampleGrabber>(m_grabberFilter, IID_ISampleGrabber)) {
  if (!m_control || !m_event || !m_camera || !m_grabber) {
    throw std::runtime_error("the graph or one of its filters cannot be created");
  }
  AM_MEDIA_TYPE type{};
  type.majortype = MEDIATYPE_Video;
  type.subtype = wanted;
  type.formattype = FORMAT_VideoInfo;
  m_grabber->SetMediaType(&type);
  m_grabber->SetCallback(&recorder, 1);
  m_grabber->SetBufferSamples(TRUE);
  m_grabber->SetOneShot(TRUE);
  m_graph->AddFilter(m_camera.Get(), nullptr);
  m_graph->AddFilter(m_grabberFilter.Get(), L"Grabber");
}

TestGraph::~TestGraph() { m_control->Stop(); }

HRESULT TestGraph::SetFormat(REFGUID subtype, LONG width, LONG height, REFERENCE_TIME interval) {
  const auto config = Query<IAMStreamConfig>(FindPin(*m_camera.Get(), PINDIR_OUTPUT), IID_IAMStreamConfig);
  AM_MEDIA_TYPE* current = nullptr;
  if (const HRESULT hr = config->GetFormat(&current); FAILED(hr)) {
    return hr;
  }
  const std::unique_ptr<AM_MEDIA_TYPE, FreeMediaType> type(current);
  type->subtype = subtype;
  VIDEOINFOHEADER format{};
  std::memcpy(&format, type->pbFormat, sizeof(format));
  format.bmiHeader.biWidth = width;
  format.bmiHeader.biHeight = height;
  format.AvgTimePerFrame = interval;
  std::memcpy(type->pbFormat, &format, sizeof(format));
  return config->SetFormat(type.get());
}

HRESULT TestGraph::Connect() {
  return m_graph->Connect(FindPin(*m_camera.Get(), PINDIR_OUTPUT).Get(),
                          FindPin(*m_grabberFilter.Get(), PINDIR_INPUT).Get());
}

HRESULT TestGraph::Run() { return m_control->Run(); }
HRESULT TestGraph::Stop() { return m_control->Stop(); }

HRESULT TestGraph::WaitForCompletion(LONG milliseconds, LONG& code) {
  return m_event->WaitForCompletion(milliseconds, &code);
}

bool TestGraph::WaitForEvent(LONG wanted) {
  constexpr LONG kPollInterval = 100;  // ms
  const auto end = std::chrono::steady_clock::now() + kTimeout;
  while (std::chrono::steady_clock::now() < end) {
    LONG code = 0;
    LONG_PTR first = 0;
    LONG_PTR second = 0;
    if (m_event->GetEvent(&code, &first, &second, kPollInterval) != S_OK) {
      continue;
    }
    m_event->FreeEventParams(code, first, second);
    if (code == wanted) {
      return true;
    }
  }
  return false;
}

bool TestGraph::Capture(REFGUID subtype, LONG width, LONG height) {
  constexpr REFERENCE_TIME kIntervalAt30Fps = 333'333;
  constexpr LONG kTimeoutMs = 20'000;
  LONG code = 0;
  return SetFormat(subtype, width, height, kIntervalAt30Fps) == S_OK && Connect() == S_OK && Run() == S_OK &&
         WaitForCompletion(kTimeoutMs, code) == S_OK && code == EC_COMPLETE;
}

std::size_t TestGraph::FilterCount() const {
  ComPtr<IEnumFilters> filters;
  m_graph->EnumFilters(filters.Put());
  std::size_t count = 0;
  ComPtr<IBaseFilter> filter;
  while (filters->Next(1, filter.Put(), nullptr) == S_OK) {
    ++count;
  }
  return count;
}

AM_MEDIA_TYPE TestGraph::ConnectedType() const {
  AM_MEDIA_TYPE type{};
  m_grabber->GetConnectedMediaType(&type);
  CoTaskMemFree(type.pbFormat);
  type.pbFormat = nullptr;
  return type;
}

VIDEOINFOHEADER TestGraph::ConnectedFormat() const {
  VIDEOINFOHEADER format{};
  AM_MEDIA_TYPE type{};
  if (m_grabber->GetConnectedMediaType(&type) == S_OK && type.cbFormat >= sizeof(format)) {
    std::memcpy(&format, type.pbFormat, sizeof(format));
  }
  CoTaskMemFree(type.pbFormat);
  return format;
}

}  // namespace fixtures
