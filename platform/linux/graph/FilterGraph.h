// The filter graph: filters, the connection between two of them, and its running.
//
//   Stopped --Run--> Running --Stop--> Stopped, as often as one likes
//
// Callable from any thread. Run and Stop take turns. No lock is held that a frame's way through the graph
// needs.
#pragma once

#include <mutex>
#include <vector>

#include "com/ComObject.h"
#include "graph/StreamThread.h"

class FilterGraph : public ComObject<IGraphBuilder, IMediaControl, IMediaEvent> {
 public:
  FilterGraph() = default;
  ~FilterGraph() override = default;

  // E_POINTER for a null filter; adding a filter twice changes nothing.
  HRESULT STDMETHODCALLTYPE AddFilter(IBaseFilter* filter, LPCOLESTR name) override;
  // Both pins belong to filters of the graph, which makes one connection. See Connection::Tie.
  HRESULT STDMETHODCALLTYPE Connect(IPin* output, IPin* input) override;

  // VFW_E_NOT_CONNECTED without a connection; the camera's own failure to start; S_OK also when the graph
  // runs already.
  HRESULT STDMETHODCALLTYPE Run() override;
  // VFW_E_WRONG_STATE from inside a callback, which cannot wait for itself.
  HRESULT STDMETHODCALLTYPE Stop() override;

  HRESULT STDMETHODCALLTYPE WaitForCompletion(LONG timeout, LONG* eventCode) override;

 private:
  bool Contains(IPin& pin);

  std::mutex m_mutex;  // the graph's make-up
  std::vector<ComPtr<IBaseFilter>> m_filters;
  std::shared_ptr<Connection> m_connection;
  std::shared_ptr<Completion> m_completion = std::make_shared<Completion>();
  std::mutex m_controlMutex;  // Run and Stop
  StreamThread m_thread;      // last: it ends before the rest goes
};
