#include "graph/FilterGraph.h"

#include <algorithm>

namespace graph {

HRESULT STDMETHODCALLTYPE FilterGraph::AddFilter(IBaseFilter* filter, LPCOLESTR /*name*/) {
  if (filter == nullptr) {
    return E_POINTER;
  }
  return com::CatchToHresult([&] {
    const std::lock_guard lock(m_mutex);
    const bool isKnown = std::any_of(m_filters.begin(), m_filters.end(),
                                     [&](const auto& known) { return known.Get() == filter; });
    if (!isKnown) {
      m_filters.emplace_back(filter);
    }
    return S_OK;
  });
}

bool FilterGraph::Contains(IPin& pin) {
  PIN_INFO info{};
  if (pin.QueryPinInfo(&info) != S_OK || info.pFilter == nullptr) {
    return false;
  }
  info.pFilter->Release();
  return std::any_of(m_filters.begin(), m_filters.end(),
                     [&](const auto& filter) { return filter.Get() == info.pFilter; });
}

HRESULT STDMETHODCALLTYPE FilterGraph::Connect(IPin* output, IPin* input) {
  if (output == nullptr || input == nullptr) {
    return E_POINTER;
  }
  return com::CatchToHresult([&] {
    const std::lock_guard lock(m_mutex);
    if (!Contains(*output) || !Contains(*input)) {
      return VFW_E_NOT_IN_GRAPH;
    }
    if (m_connection != nullptr) {
      return VFW_E_ALREADY_CONNECTED;
    }
    const auto connection = std::make_shared<Connection>();
    const HRESULT hr = connection->Connect(*output, *input);
    if (hr == S_OK) {
      m_connection = connection;
    }
    return hr;
  });
}

HRESULT STDMETHODCALLTYPE FilterGraph::Run() {
  if (m_thread.IsCurrentThread()) {
    return S_OK;
  }
  return com::CatchToHresult([&] {
    const std::lock_guard control(m_controlMutex);
    if (m_thread.IsRunning()) {
      return S_OK;
    }
    m_thread.Stop();
    const std::shared_ptr<Connection> connection = [&] {
      const std::lock_guard lock(m_mutex);
      return m_connection;
    }();
    return connection == nullptr ? VFW_E_NOT_CONNECTED : m_thread.Start(connection, m_completion);
  });
}

HRESULT STDMETHODCALLTYPE FilterGraph::Stop() {
  if (m_thread.IsCurrentThread()) {
    return VFW_E_WRONG_STATE;
  }
  return com::CatchToHresult([&] {
    // Wake waiters first: a frame in delivery must not delay them.
    m_completion->End();
    const std::lock_guard control(m_controlMutex);
    m_thread.Stop();
    // Again, for a Run that was in progress.
    m_completion->End();
    return S_OK;
  });
}

HRESULT STDMETHODCALLTYPE FilterGraph::WaitForCompletion(LONG timeout, LONG* eventCode) {
  LONG code = 0;
  const HRESULT hr = com::CatchToHresult([&] { return m_completion->Wait(timeout, code); });
  if (eventCode != nullptr) {
    *eventCode = code;
  }
  return hr;
}

}  // namespace graph
