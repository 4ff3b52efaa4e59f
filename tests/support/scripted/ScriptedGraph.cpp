#include "support/scripted/ScriptedGraph.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace scripted {
namespace {

// Longer than any successful operation takes; a timeout ends the test.
constexpr std::chrono::seconds kHang{60};

// Another interface of the graph. Shares the graph's reference count, but has its own name in the journal.
template <typename Interface, typename Graph>
class Aspect : public Whole<Interface> {
 public:
  Aspect(Graph& graph, std::string name) : m_graph(graph), m_name(std::move(name)) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    return m_graph.QueryInterface(iid, out);
  }
  ULONG STDMETHODCALLTYPE AddRef() override {
    Platform::Get().NoteReference("AddRef(" + m_name + ")");
    return m_graph.AddRef();
  }
  ULONG STDMETHODCALLTYPE Release() override {
    Platform::Get().NoteReference("Release(" + m_name + ")");
    return m_graph.Release();
  }

 protected:
  ~Aspect() = default;

  Graph& m_graph;

 private:
  std::string m_name;
};

class FilterGraph : public Object<IGraphBuilder> {
 public:
  FilterGraph() : Object("graph"), m_control(*this), m_event(*this) {}

  HRESULT STDMETHODCALLTYPE AddFilter(IBaseFilter* filter, LPCOLESTR name) override {
    auto* const added = static_cast<Filter*>(filter);
    const Answer answer = Enter(
        "IFilterGraph::AddFilter",
        (added == nullptr ? "null" : added->Name()) + ", " +
            (name == nullptr ? "null" : std::string(name, name + std::char_traits<WCHAR>::length(name))));
    if (answer.hr != S_OK) {
      return answer.hr;
    }
    if (added == nullptr) {
      // SucceedsWithNull: AddFilter accepts a null filter.
      return answer.null ? S_OK : E_POINTER;
    }
    added->AddRef();
    m_filters.push_back(added);
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE Connect(IPin* output, IPin* input) override {
    auto* const from = static_cast<FilterPin*>(output);
    auto* const to = static_cast<FilterPin*>(input);
    const Answer answer = Enter("IGraphBuilder::Connect", from->Name() + ", " + to->Name());
    if (answer.hr != S_OK) {
      return answer.hr;
    }
    if (from->Description().direction != PINDIR_OUTPUT || to->Description().direction != PINDIR_INPUT) {
      return VFW_E_CANNOT_CONNECT;
    }
    m_grabber = to->Owner();
    return S_OK;
  }

  HRESULT Run() {
    const Answer answer = Enter("IMediaControl::Run", "");
    // S_FALSE: the graph runs, but not every filter has reached the running state.
    if (answer.hr < 0) {
      return answer.hr;
    }
    const GrabberSettings* const settings = m_grabber == nullptr ? nullptr : m_grabber->Grabber();
    if (settings != nullptr) {
      if (settings->method != 1 || !settings->buffers) {
        Platform::Get().NoteMisuse("the grabber is not set up for buffer callbacks");
      }
      m_stream = std::make_shared<GraphStream>(settings->callback, settings->oneShot,
                                               Platform::Get().GetStreaming());
      Platform::Get().SetRunningStream(m_stream);
      m_stream->Start();
    }
    return answer.hr;
  }

  HRESULT Stop() {
    const Answer answer = Enter("IMediaControl::Stop", "");
    StopStream();
    return answer.hr;
  }

  HRESULT WaitForCompletion(LONG timeout, LONG* eventCode) {
    const Answer answer = Enter("IMediaEvent::WaitForCompletion", std::to_string(timeout));
    if (*eventCode != 0) {
      Platform::Get().NoteMisuse("the event code is not cleared before the wait");
    }
    if (answer.hr != S_OK) {
      return answer.hr;
    }
    constexpr LONG kComplete = 1;
    *eventCode = kComplete;
    return m_stream == nullptr ? S_OK : m_stream->WaitForCompletion();
  }

 protected:
  ~FilterGraph() override {
    StopStream();
    for (Filter* const filter : m_filters) {
      filter->Release();
    }
  }

  void* Find(REFIID iid) override {
    if (IsEqualGUID(iid, IID_IMediaControl)) {
      return static_cast<IMediaControl*>(&m_control);
    }
    if (IsEqualGUID(iid, IID_IMediaEvent)) {
      return static_cast<IMediaEvent*>(&m_event);
    }
    return nullptr;
  }
  void* FindInLentCopy(REFIID iid) override { return Lent(new FilterGraph)->Find(iid); }

 private:
  class Control final : public Aspect<IMediaControl, FilterGraph> {
   public:
    explicit Control(FilterGraph& graph) : Aspect(graph, "graph control") {}
    HRESULT STDMETHODCALLTYPE Run() override { return m_graph.Run(); }
    HRESULT STDMETHODCALLTYPE Stop() override { return m_graph.Stop(); }
  };

  class Event final : public Aspect<IMediaEvent, FilterGraph> {
   public:
    explicit Event(FilterGraph& graph) : Aspect(graph, "graph event") {}
    HRESULT STDMETHODCALLTYPE WaitForCompletion(LONG timeout, LONG* eventCode) override {
      return m_graph.WaitForCompletion(timeout, eventCode);
    }
  };

  void StopStream() {
    if (m_stream != nullptr) {
      m_stream->Stop();
      Platform::Get().SetRunningStream(nullptr);
    }
  }

  Control m_control;
  Event m_event;
  std::vector<Filter*> m_filters;
  Filter* m_grabber = nullptr;
  std::shared_ptr<GraphStream> m_stream;
};

}  // namespace

GraphStream::GraphStream(ISampleGrabberCB* callback, bool oneShot, Streaming streaming)
    : m_callback(callback), m_oneShot(oneShot), m_streaming(std::move(streaming)) {
  if (m_callback != nullptr) {
    m_callback->AddRef();
  }
}

GraphStream::~GraphStream() { Stop(); }

void GraphStream::Start() {
  if (m_streaming.live) {
    m_thread = std::thread([this] { Run(); });
  }
}

void GraphStream::Run() {
  for (std::uint64_t number = 0;; ++number) {
    const std::vector<std::uint8_t> frame = m_streaming.frame(number);
    {
      const std::lock_guard lock(m_mutex);
      if (m_stopped) {
        return;
      }
    }
    if (frame.empty()) {
      std::this_thread::yield();
      continue;
    }
    if (!Deliver(frame.data(), static_cast<LONG>(frame.size()))) {
      return;
    }
    Platform::Get().CountDelivered();
  }
}

bool GraphStream::Deliver(const std::uint8_t* bytes, LONG length) {
  ISampleGrabberCB* callback = nullptr;
  {
    const std::lock_guard lock(m_mutex);
    if (m_stopped || m_callback == nullptr) {
      return false;
    }
    callback = m_callback;
    ++m_inCallback;
  }
  constexpr double kNoTime = 0.0;
  if (callback->BufferCB(kNoTime, const_cast<BYTE*>(bytes), length) != S_OK) {
    Platform::Get().NoteMisuse("BufferCB answers something else than S_OK");
  }
  const std::lock_guard lock(m_mutex);
  --m_inCallback;
  m_completed = m_completed || m_oneShot;
  m_changed.notify_all();
  return true;
}

void GraphStream::Stop() {
  {
    std::unique_lock lock(m_mutex);
    m_stopped = true;
    m_changed.notify_all();
    if (!m_changed.wait_for(lock, kHang, [&] { return m_inCallback == 0; })) {
      // The thread cannot be ended; ending the process reports the reason.
      std::fputs("the graph's Stop waits in vain for a callback to return\n", stderr);
      std::abort();
    }
  }
  if (m_thread.joinable()) {
    m_thread.join();
  }
  ISampleGrabberCB* released = nullptr;
  {
    const std::lock_guard lock(m_mutex);
    released = std::exchange(m_callback, nullptr);
  }
  if (released != nullptr) {
    released->Release();
  }
}

unsigned GraphStream::FramesInDelivery() {
  const std::lock_guard lock(m_mutex);
  return m_inCallback;
}

HRESULT GraphStream::WaitForCompletion() {
  if (!m_streaming.live) {
    return S_OK;
  }
  std::unique_lock lock(m_mutex);
  if (!m_changed.wait_for(lock, kHang, [&] { return m_completed || m_stopped; })) {
    Platform::Get().NoteMisuse("a wait for completion timed out");
  }
  return m_completed ? S_OK : E_ABORT;
}

IGraphBuilder* MakeFilterGraph(const Answer& answer) { return LentUnlessOk(answer, new FilterGraph); }

}  // namespace scripted
