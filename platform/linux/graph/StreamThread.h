// The streaming thread of a connection: reads frames from the camera, converts them if necessary and passes
// them to the sink until it is stopped or the camera is disconnected.
#pragma once

#include <atomic>
#include <memory>
#include <thread>

#include "graph/Completion.h"
#include "graph/Connection.h"

namespace graph {

// Calls of Start, Stop and IsRunning must be serialised. IsCurrentThread may be called from any thread.
class StreamThread {
 public:
  StreamThread() = default;
  StreamThread(const StreamThread&) = delete;
  StreamThread& operator=(const StreamThread&) = delete;
  ~StreamThread() { Stop(); }

  // Starts the camera and the thread. The graph completes with the first frame for which
  // IFrameSink::Receive returns true, after five seconds without a good frame, or when the camera is
  // disconnected.
  HRESULT Start(const std::shared_ptr<Connection>& connection, const std::shared_ptr<Completion>& completion);
  // Returns after the last frame has been delivered and the camera has stopped. On the streaming thread
  // itself it returns at once, and the stream ends after the current frame.
  void Stop();
  // False after a disconnect, too. Stop must still be called before the next Start.
  bool IsRunning() const;
  bool IsCurrentThread() const;

 private:
  class Stream;

  std::shared_ptr<Stream> m_stream;
  std::atomic<const Stream*> m_current = nullptr;  // m_stream, read by IsCurrentThread
  std::thread m_thread;
};

}  // namespace graph
