// What the fixtures' filters have in common: state, graph, clock and pins.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "support/windows/ComExtensions.h"

namespace fixtures {

// Calls that change the state come one at a time, and wait for each other.
class Filter : public com::ComObject<IBaseFilter> {
 public:
  explicit Filter(const CLSID& classId) : m_classId(classId) {}

  // Also returns the filter for the interfaces that IBaseFilter extends.
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
  // An event of the graph that the filter is in.
  void NotifyGraph(long code, LONG_PTR first, LONG_PTR second);

 protected:
  virtual std::vector<IPin*> Pins() = 0;
  // The steps between the states. A failing one leaves the state as it was.
  virtual HRESULT Prepare() { return S_OK; }  // stopped to paused
  virtual HRESULT Start() { return S_OK; }    // paused to running
  virtual void Hold() {}                      // running to paused
  virtual void Unprepare() {}                 // paused to stopped

 private:
  const CLSID m_classId;
  std::mutex m_changing;  // held during a change of the state
  std::atomic<FILTER_STATE> m_state{State_Stopped};

  std::mutex m_mutex;  // of everything below
  ComPtr<IReferenceClock> m_clock;
  // Weak: the graph holds its filters, and takes itself away before it goes.
  IFilterGraph* m_graph = nullptr;
  IMediaEventSink* m_events = nullptr;
  std::wstring m_name;
};

}  // namespace fixtures
