// The scripted platform's filter graph and the stream of frames that runs through it.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "support/scripted/ScriptedFilters.h"

namespace scripted {

// The streaming side of a graph: calls the grabber's callback between Start and Stop.
class GraphStream {
 public:
  GraphStream(ISampleGrabberCB* callback, bool oneShot, Streaming streaming);
  ~GraphStream();
  GraphStream(const GraphStream&) = delete;
  GraphStream& operator=(const GraphStream&) = delete;

  // Starts the live stream, if that is what was asked for.
  void Start();
  // Returns after the last callback has returned, which may take as long as that waits. The callback object
  // is let go: whoever has delivered a frame may still be on the way out when the library has gone.
  void Stop();
  // Delivers one frame on the calling thread. False when the stream has no callback or has stopped.
  bool Deliver(const std::uint8_t* bytes, LONG length);
  // Callbacks that have not returned.
  unsigned FramesInDelivery();
  // S_OK once the graph has completed; without a live stream at once. E_ABORT when stopped before that.
  HRESULT WaitForCompletion();

 private:
  void Run();

  ISampleGrabberCB* m_callback;
  const bool m_oneShot;
  const Streaming m_streaming;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_stopped = false;
  bool m_completed = false;
  unsigned m_inCallback = 0;
  std::thread m_thread;
};

// The class CLSID_FilterGraph. Lent unless the answer is S_OK.
IGraphBuilder* MakeFilterGraph(const Answer& answer);

}  // namespace scripted
