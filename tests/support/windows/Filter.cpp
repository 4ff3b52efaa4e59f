#include "support/windows/Filter.h"

#include <iterator>

#include "support/windows/ComExtensions.h"

namespace fixtures {
namespace {

class PinEnumerator final : public Enumerator<IEnumPins, IPin, ComPtr<IPin>> {
 public:
  using Enumerator::Enumerator;

 protected:
  HRESULT CopyItem(const ComPtr<IPin>& pin, IPin** out) override { return com::CopyTo(pin, out); }
};

}  // namespace

HRESULT STDMETHODCALLTYPE Filter::QueryInterface(REFIID iid, void** out) {
  const bool isBaseOfFilter = iid == IID_IMediaFilter || iid == IID_IPersist;
  return ComObject::QueryInterface(isBaseOfFilter ? IID_IBaseFilter : iid, out);
}

HRESULT STDMETHODCALLTYPE Filter::GetClassID(CLSID* classId) {
  if (classId == nullptr) {
    return E_POINTER;
  }
  *classId = m_classId;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE Filter::Stop() {
  const std::lock_guard lock(m_stateChange);
  if (m_state == State_Running) {
    Halt();
  }
  // Changes the state first, so that input pins reject samples that are still in transit.
  if (m_state.exchange(State_Stopped) != State_Stopped) {
    Unprepare();
  }
  return S_OK;
}

HRESULT STDMETHODCALLTYPE Filter::Pause() {
  const std::lock_guard lock(m_stateChange);
  if (m_state == State_Stopped) {
    if (const HRESULT hr = com::CatchToHresult([&] { return Prepare(); }); FAILED(hr)) {
      return hr;
    }
  } else if (m_state == State_Running) {
    Halt();
  }
  m_state = State_Paused;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE Filter::Run(REFERENCE_TIME /*start*/) {
  if (m_state == State_Stopped) {
    if (const HRESULT hr = Pause(); FAILED(hr)) {
      return hr;
    }
  }
  const std::lock_guard lock(m_stateChange);
  if (m_state == State_Paused) {
    if (const HRESULT hr = com::CatchToHresult([&] { return Start(); }); FAILED(hr)) {
      return hr;
    }
    m_state = State_Running;
  }
  return S_OK;
}

HRESULT STDMETHODCALLTYPE Filter::GetState(DWORD /*timeout*/, FILTER_STATE* state) {
  if (state == nullptr) {
    return E_POINTER;
  }
  *state = m_state;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE Filter::SetSyncSource(IReferenceClock* clock) {
  ComPtr<IReferenceClock> replaced(clock);
  const std::lock_guard lock(m_mutex);
  std::swap(m_clock, replaced);
  return S_OK;
}

HRESULT STDMETHODCALLTYPE Filter::GetSyncSource(IReferenceClock** clock) {
  if (clock == nullptr) {
    return E_POINTER;
  }
  const std::lock_guard lock(m_mutex);
  return com::CopyTo(m_clock, clock);
}

HRESULT STDMETHODCALLTYPE Filter::EnumPins(IEnumPins** enumerator) {
  if (enumerator == nullptr) {
    return E_POINTER;
  }
  *enumerator = nullptr;
  return com::CatchToHresult([&] {
    std::vector<ComPtr<IPin>> pins;
    for (IPin* const pin : Pins()) {
      pins.emplace_back(pin);
    }
    *enumerator = com::MakeComObject<PinEnumerator>(std::move(pins)).Detach();
    return S_OK;
  });
}

HRESULT STDMETHODCALLTYPE Filter::FindPin(LPCWSTR /*id*/, IPin** /*pin*/) { return E_NOTIMPL; }

HRESULT STDMETHODCALLTYPE Filter::QueryFilterInfo(FILTER_INFO* info) {
  if (info == nullptr) {
    return E_POINTER;
  }
  const std::lock_guard lock(m_mutex);
  *info = {};
  m_name.copy(info->achName, std::size(info->achName) - 1);
  return com::CopyTo(ComPtr(m_graph), &info->pGraph);
}

HRESULT STDMETHODCALLTYPE Filter::JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) {
  return com::CatchToHresult([&] {
    std::wstring newName = name != nullptr ? name : L"";
    ComPtr<IMediaEventSink> events;
    if (graph != nullptr) {
      graph->QueryInterface(IID_IMediaEventSink, events.PutVoid());
    }
    const std::lock_guard lock(m_mutex);
    m_graph = graph;
    m_events = events.Get();
    m_name = std::move(newName);
    return S_OK;
  });
}

HRESULT STDMETHODCALLTYPE Filter::QueryVendorInfo(LPWSTR* /*info*/) { return E_NOTIMPL; }

void Filter::NotifyGraph(long code, LONG_PTR first, LONG_PTR second) {
  ComPtr<IMediaEventSink> events;
  {
    const std::lock_guard lock(m_mutex);
    events = ComPtr<IMediaEventSink>(m_events);
  }
  if (events) {
    events->Notify(code, first, second);
  }
}

}  // namespace fixtures
