// Base class of the fixtures' filters: state, graph, clock and pins.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "support/windows/ComExtensions.h"

namespace fixtures {

// Callable from any thread; state changes are serialised.
class Filter : public com::ComObject<IBaseFilter> {
 public:
  explicit Filter(const CLSID& classId) : m_classId(classId) {}

  // Also supports the base interfaces of IBaseFilter.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override;
  HRESULT STDMETHODCALLTYPE GetClassID(CLSID* classId) override;
  HRESULT STDMETHODCALLTYPE Stop() override;
  HRESULT STDMETHODCALLTYPE Pause() override;
  HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME start) override;
  HRESULT STDMETHODCALLTYPE GetState(DWORD timeout, FILTER_STATE* state) override;
  HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock* clock) override;
  HRESULT STDMETHODCALLTYPE GetSyncSource(IReferenceClock** clock) override;
  HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** enumerator) override;
  HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR id, IPin** pin) override;
  HRESULT STDMETHODCALLTYPE QueryFilterInfo(FILTER_INFO* info) override;
  HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) override;
  HRESULT STDMETHODCALLTYPE QueryVendorInfo(LPWSTR* info) override;

  FILTER_STATE State() const { return m_state; }
  // Sends an event to the filter's graph, if there is one.
  void NotifyGraph(long code, LONG_PTR first, LONG_PTR second);

 protected:
  virtual std::vector<IPin*> Pins() = 0;
  // State transitions. A transition that fails leaves the state unchanged.
  virtual HRESULT Prepare() { return S_OK; }  // stopped -> paused
  virtual HRESULT Start() { return S_OK; }    // paused -> running
  virtual void Halt() {}                      // running -> paused
  virtual void Unprepare() {}                 // paused -> stopped

 private:
  const CLSID m_classId;
  std::mutex m_stateChange;  // serialises state changes
  std::atomic<FILTER_STATE> m_state{State_Stopped};

  std::mutex m_mutex;  // protects the members below
  ComPtr<IReferenceClock> m_clock;
  // Not owned: the graph owns its filters and calls JoinFilterGraph(nullptr) before it is destroyed.
  IFilterGraph* m_graph = nullptr;
  IMediaEventSink* m_events = nullptr;
  std::wstring m_name;
};

}  // namespace fixtures
