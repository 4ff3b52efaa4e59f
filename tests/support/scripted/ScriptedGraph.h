// Filter graph of the scripted platform and its stream of frames.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "support/scripted/ScriptedFilters.h"

namespace scripted {

// The stream of a graph: calls the grabber's callback between Start and Stop.
class GraphStream {
 public:
  GraphStream(ISampleGrabberCB* callback, bool oneShot, Streaming streaming);
  ~GraphStream();
  GraphStream(const GraphStream&) = delete;
  GraphStream& operator=(const GraphStream&) = delete;

  // Starts the thread of a live stream.
  void Start();
  // Returns after the last callback has returned, without a timeout. Releases the callback object, because a
  // thread that has delivered a frame may still be running when the library is unloaded.
  void Stop();
  // Delivers one frame on the calling thread. False if the stream has no callback or has stopped.
  bool Deliver(const std::uint8_t* bytes, LONG length);
  // Number of callbacks in progress.
  unsigned FramesInDelivery();
  // Waits until the graph has completed; returns at once without a live stream. E_ABORT if stopped before.
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

// Creates an object of CLSID_FilterGraph. Lent unless the answer is S_OK.
IGraphBuilder* MakeFilterGraph(const Answer& answer);

}  // namespace scripted
