#include "graph/StreamThread.h"

#include <pthread.h>

#include <limits>

#include "com/ComObject.h"
#include "graph/StreamStats.h"

namespace graph {

namespace {

constexpr auto kNever = CaptureSource::Deadline::max();

// The stream that the current thread runs.
thread_local const void* t_stream = nullptr;

}  // namespace

// The thread's state. Shared with the thread, which may outlive the StreamThread when Stop is called on it.
class StreamThread::Stream {
 public:
  Stream(std::shared_ptr<Connection> connection, std::shared_ptr<Completion> completion)
      : m_connection(std::move(connection)), m_completion(std::move(completion)) {}

  void RequestStop() { m_connection->Camera().Interrupt(); }

  void Run() {
    pthread_setname_np(pthread_self(), "nuveq-capture");
    t_stream = this;
    m_deadline = std::chrono::steady_clock::now() + kFirstFrameTimeout;
    while (ProcessNext()) {
    }
    m_connection->Camera().Stop();
  }

  // True after a disconnect.
  bool IsOver() const { return m_isOver; }

 private:
  // Returns false at the end of the stream.
  bool ProcessNext() {
    CapturedFrame frame;
    switch (m_connection->Camera().Next(m_deadline, frame)) {
      case CaptureResult::kFrame:
        Deliver(frame);
        m_connection->Camera().Recycle(frame);
        // A camera may keep delivering frames, none of which can be decoded.
        if (std::chrono::steady_clock::now() >= m_deadline) {
          CompleteWithoutFrame();
        }
        return true;
      case CaptureResult::kTimeout:
        CompleteWithoutFrame();
        return true;
      case CaptureResult::kDisconnected:
        // Before the completion: a waiter that runs the graph again must find this stream over.
        m_isOver = true;
        CurrentStreamStats().isDisconnected = true;
        m_completion->Complete(EC_DEVICE_LOST);
        return false;
      case CaptureResult::kInterrupted:
        break;
    }
    return false;
  }

  void CompleteWithoutFrame() {
    m_deadline = kNever;
    m_completion->Complete(EC_ERRORABORT);
  }

  // Exceptions of the converter and of the callback must not end the process.
  void Deliver(const CapturedFrame& frame) {
    FrameConverter::Picture picture{frame.data, frame.size};
    if (com::CatchToHresult([&] { return Convert(picture); }) != S_OK) {
      ++CurrentStreamStats().undecodable;
      return;
    }
    ++CurrentStreamStats().delivered;
    bool isComplete = false;
    const HRESULT hr = com::CatchToHresult([&] {
      isComplete = m_connection->Sink().Receive(frame.time, picture.data, static_cast<LONG>(picture.size));
      return S_OK;
    });
    if (hr == S_OK) {
      m_deadline = kNever;
    }
    if (isComplete) {
      m_completion->Complete(EC_COMPLETE);
    }
  }

  HRESULT Convert(FrameConverter::Picture& picture) {
    FrameConverter* const converter = m_connection->Converter();
    if (converter != nullptr && !converter->Convert(picture.data, picture.size, picture)) {
      return E_FAIL;
    }
    return picture.size <= static_cast<std::size_t>(std::numeric_limits<LONG>::max()) ? S_OK : E_FAIL;
  }

  std::shared_ptr<Connection> m_connection;
  std::shared_ptr<Completion> m_completion;
  CaptureSource::Deadline m_deadline = kNever;
  std::atomic<bool> m_isOver = false;
};

HRESULT StreamThread::Start(const std::shared_ptr<Connection>& connection,
                            const std::shared_ptr<Completion>& completion) {
  CaptureSource& camera = connection->Camera();
  const auto stream = std::make_shared<Stream>(connection, completion);
  ResetStreamStats();
  if (const HRESULT hr = camera.Start(); hr != S_OK) {
    return hr;
  }
  completion->Begin();
  m_stream = stream;
  m_current = stream.get();
  try {
    m_thread = std::thread([stream] { stream->Run(); });
  } catch (...) {
    // The thread could not be started.
    completion->End();
    camera.Stop();
    return E_OUTOFMEMORY;
  }
  return S_OK;
}

void StreamThread::Stop() {
  if (!m_thread.joinable()) {
    return;
  }
  m_stream->RequestStop();
  if (IsCurrentThread()) {
    m_thread.detach();
  } else {
    m_thread.join();
  }
}

bool StreamThread::IsRunning() const { return m_thread.joinable() && !m_stream->IsOver(); }

bool StreamThread::IsCurrentThread() const { return t_stream != nullptr && t_stream == m_current; }

}  // namespace graph
