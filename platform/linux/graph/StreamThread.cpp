#include "graph/StreamThread.h"

#include <pthread.h>

#include <limits>

#include "com/ComObject.h"
#include "graph/StreamCounters.h"

namespace {

// After which a camera that has shown nothing no longer keeps anybody waiting.
constexpr std::chrono::seconds kFirstFrame{5};
constexpr auto kNever = CaptureSource::Deadline::max();

// The stream that the calling thread carries.
thread_local const void* t_stream = nullptr;

}  // namespace

// What the thread works on. It keeps all that it needs alive, for a thread that nobody could wait for.
class StreamThread::Stream {
 public:
  Stream(std::shared_ptr<Connection> connection, std::shared_ptr<Completion> completion)
      : m_connection(std::move(connection)), m_completion(std::move(completion)) {}

  void RequestStop() {
    m_isStopping = true;
    m_connection->Camera().Wake();
  }

  void Run() {
    pthread_setname_np(pthread_self(), "nuveq-capture");
    t_stream = this;
    m_deadline = std::chrono::steady_clock::now() + kFirstFrame;
    while (!m_isStopping && TakeOne()) {
    }
    m_connection->Camera().Stop();
    m_isOver = true;
  }

  bool IsOver() const { return m_isOver; }

 private:
  // False when the stream is over.
  bool TakeOne() {
    CapturedFrame frame;
    switch (m_connection->Camera().Next(m_deadline, frame)) {
      case Arrival::kFrame:
        PassOn(frame);
        m_connection->Camera().Recycle(frame);
        // A camera may have a frame ready at any time and none that is good.
        if (m_deadline != kNever && std::chrono::steady_clock::now() >= m_deadline) {
          LetWaitersGo();
        }
        return true;
      case Arrival::kNothing:
        LetWaitersGo();
        return true;
      case Arrival::kLost:
        // Before anybody hears of it: who runs the graph again then starts a new stream.
        m_isOver = true;
        Counters().isLost = true;
        m_completion->Complete(EC_DEVICE_LOST);
        return false;
      case Arrival::kWoken:
        break;
    }
    return false;
  }

  void LetWaitersGo() {
    m_deadline = kNever;
    m_completion->Complete(EC_ERRORABORT);
  }

  // Neither what a conversion nor what a callback throws may end the process.
  void PassOn(const CapturedFrame& frame) {
    FrameConverter::Picture picture{frame.data, frame.size};
    if (Guarded([&] { return Convert(picture); }) != S_OK) {
      ++Counters().undecodable;
      return;
    }
    ++Counters().delivered;
    bool isComplete = false;
    const HRESULT hr = Guarded([&] {
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
  std::atomic<bool> m_isStopping = false;
  std::atomic<bool> m_isOver = false;
};

HRESULT StreamThread::Start(const std::shared_ptr<Connection>& connection,
                            const std::shared_ptr<Completion>& completion) {
  CaptureSource& camera = connection->Camera();
  const auto stream = std::make_shared<Stream>(connection, completion);
  ResetCounters();
  if (const HRESULT hr = camera.Start(); hr != S_OK) {
    return hr;
  }
  completion->Begin();
  m_stream = stream;
  m_current = stream.get();
  try {
    m_thread = std::thread([stream] { stream->Run(); });
  } catch (...) {
    // No thread, or no memory for one.
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
