// The filter graph: a list of filters with one connection, which it can run.
#pragma once

#include <mutex>
#include <vector>

#include "com/ComObject.h"
#include "graph/StreamThread.h"

namespace graph {

//   Stopped --Run--> Running --Stop--> Stopped, any number of times
//
// May be called from any thread. Run and Stop are serialised. No function holds a lock that delivering a
// frame needs.
class FilterGraph : public com::ComObject<IGraphBuilder, IMediaControl, IMediaEvent> {
 public:
  FilterGraph() = default;
  ~FilterGraph() override = default;

  // E_POINTER for a null filter. Adding a filter twice has no effect.
  HRESULT STDMETHODCALLTYPE AddFilter(IBaseFilter* filter, LPCOLESTR name) override;
  // Both pins must belong to filters of the graph. A graph has one connection. See Connection::Connect.
  HRESULT STDMETHODCALLTYPE Connect(IPin* output, IPin* input) override;

  // VFW_E_NOT_CONNECTED without a connection, or the camera's error. S_OK if the graph is already running.
  HRESULT STDMETHODCALLTYPE Run() override;
  // VFW_E_WRONG_STATE from inside a frame callback, where it would wait for itself.
  HRESULT STDMETHODCALLTYPE Stop() override;

  HRESULT STDMETHODCALLTYPE WaitForCompletion(LONG timeout, LONG* eventCode) override;

 private:
  bool Contains(IPin& pin);

  std::mutex m_mutex;  // protects m_filters and m_connection
  std::vector<ComPtr<IBaseFilter>> m_filters;
  std::shared_ptr<Connection> m_connection;
  std::shared_ptr<Completion> m_completion = std::make_shared<Completion>();
  std::mutex m_controlMutex;  // serialises Run and Stop
  StreamThread m_thread;      // last, so that it ends before the other members are destroyed
};

}  // namespace graph
