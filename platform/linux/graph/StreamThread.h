// The streaming thread of a connection: takes frames from the camera, converts them where needed, and passes
// them on, until it is stopped or the camera has gone.
#pragma once

#include <atomic>
#include <memory>
#include <thread>

#include "graph/Completion.h"
#include "graph/Connection.h"

// Start, Stop and IsRunning take turns; IsCurrentThread may be called from any thread.
class StreamThread {
 public:
  StreamThread() = default;
  StreamThread(const StreamThread&) = delete;
  StreamThread& operator=(const StreamThread&) = delete;
  ~StreamThread() { Stop(); }

  // Starts the camera and the thread. The completion hears of the first frame that completes the graph, of
  // five seconds without any frame, and of a camera that has gone.
  HRESULT Start(const std::shared_ptr<Connection>& connection, const std::shared_ptr<Completion>& completion);
  // Returns after the last frame has been passed on and the camera has stopped. The streaming thread itself
  // cannot wait for itself: called there, the stream ends once the frame at hand has been passed on.
  void Stop();
  // False also after the camera has gone, which ends the stream. Start wants a Stop before it all the same.
  bool IsRunning() const;
  bool IsCurrentThread() const;

 private:
  class Stream;

  std::shared_ptr<Stream> m_stream;
  std::atomic<const Stream*> m_current = nullptr;  // m_stream, for threads that ask whether they are its own
  std::thread m_thread;
};
