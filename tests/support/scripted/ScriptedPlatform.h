// The scripted platform: fakes of all functions that the library calls, for a PC that the test describes.
//
// It records all calls in a journal, tracks live objects, and returns the answers that a test sets for single
// calls. Operations are named as in the journal without arguments: "CoCreateInstance", "IMediaControl::Run".
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "MultiMediaEncoder.h"
#include "support/scripted/ScriptedPc.h"

#if defined(_WIN32) && defined(SCRIPTED_PLATFORM_BUILD)
#define SCRIPTED_EXPORT __declspec(dllexport)
#elif defined(_WIN32)
#define SCRIPTED_EXPORT __declspec(dllimport)
#else
#define SCRIPTED_EXPORT __attribute__((visibility("default")))
#endif

namespace scripted {

// The result of a call. Functions that return BOOL or bool fail for any code except S_OK. Functions that
// return CONFIGRET or an encoder error return the code.
//
// An object that is returned with another result than S_OK is lent: it belongs to the platform, and the
// library must not use, release or free it.
struct Answer {
  HRESULT hr = S_OK;
  bool null = false;  // the out pointer stays null
};
inline Answer Fails(HRESULT hr = E_FAIL) { return {hr, true}; }
inline Answer FailsWithOutput(HRESULT hr = E_FAIL) { return {hr, false}; }
inline Answer SFalse() { return {S_FALSE, false}; }
inline Answer SucceedsWithNull() { return {S_OK, true}; }

struct LogLine {
  int level = 0;
  std::wstring text;
  std::string file;
  int line = 0;
  std::string function;
};

// How the capture graph delivers frames while it runs.
struct Streaming {
  bool live = false;  // true: a thread of the graph delivers frames from Run to Stop
  // Returns frame n, from 0; an empty frame is not delivered. Called on that thread.
  std::function<std::vector<std::uint8_t>(std::uint64_t)> frame;
};

class GraphStream;

class SCRIPTED_EXPORT Platform {
 public:
  // The process-wide platform.
  static Platform& Get();

  // --- Setup ---

  // Clears all answers and the journal and sets the PC. No object may be alive.
  void Reset(Pc pc);
  // Replaces the PC, for example when a device is plugged in or unplugged.
  void SetPc(Pc pc);
  void SetStreaming(Streaming streaming);
  // Sets the answer of every later call of the operation, or only of the n-th from now (1 is the next).
  void Answers(const std::string& operation, Answer answer);
  void AnswersNth(const std::string& operation, unsigned nth, Answer answer);
  // Sets a function that decides the answer of every later call of any operation; nullopt selects the answers
  // set above. Runs on the calling thread without the platform's locks. Null: no function.
  void Decide(std::function<std::optional<Answer>(const std::string& operation)> decide);
  // Sets a function that runs before each later call of the operation, on the calling thread without the
  // platform's locks.
  void Before(const std::string& operation, std::function<void()> action);
  void SetProcessEnding(bool ending);
  // False: no journal, for long runs.
  void SetRecording(bool recording);

  // --- Delivering frames by hand ---

  // Delivers a frame on the calling thread. False if no graph runs or its grabber has no callback.
  bool DeliverFrame(const std::uint8_t* bytes, LONG length);
  bool DeliverFrame(const std::vector<std::uint8_t>& frame);
  // The callback object that was set last, for calls outside of a running stream; null before the first. No
  // reference is added: valid while the library is loaded.
  ISampleGrabberCB* GrabberCallback() const;
  // Number of frames that the live stream has delivered since Reset.
  std::uint64_t DeliveredFrames() const;
  // Number of callbacks in progress.
  unsigned FramesInDelivery() const;

  // --- Inspection ---

  // Calls with their arguments, in order.
  std::vector<std::string> Calls() const;
  // Calls, log lines ("log: ...") and notes of the test, in order.
  std::vector<std::string> Journal() const;
  // As Journal, with every AddRef and Release.
  std::vector<std::string> JournalWithReferences() const;
  unsigned CallCount(const std::string& operation) const;
  std::vector<LogLine> Logs() const;
  void ClearJournal();
  // Adds a line of the test to the journal.
  void Note(const std::string& text);

  // Live objects: "name: references" for COM objects, a label for other resources.
  std::vector<std::string> Alive() const;
  // Disposes of all live objects with the label.
  void DisposeOf(const std::string& label);
  // Disposes of all live objects, including lent ones.
  void DisposeOfAll();
  // API rules that the library has violated.
  std::vector<std::string> Misuse() const;

  VideoEncoder::EncodeParam LastEncodeParam() const;
  // The encoded raw frames, while recording.
  std::vector<std::vector<std::uint8_t>> EncodedFrames() const;

  // --- For the fakes ---

  // Marks a live object as lent: it does not count as a leak.
  void Lend(const void* thing);
  // Records a call, runs the function set by Before and returns the answer.
  Answer Enter(const std::string& operation, const std::string& arguments);
  // Only runs the function set by Before.
  void RunBefore(const std::string& operation);
  void NoteReference(const std::string& text);
  void NoteLog(LogLine line);
  void NoteMisuse(const std::string& text);
  void NoteEncoded(const VideoFrame& frame);
  void NoteEncodeParam(const VideoEncoder::EncodeParam& param);
  Pc GetPc() const;
  Streaming GetStreaming() const;
  bool IsProcessEnding() const;

  // Registers a live object, or changes its label. dispose destroys it.
  void Track(const void* thing, const std::string& label, std::function<void()> dispose);
  // Removes a live object. False if it is not registered.
  bool Untrack(const void* thing);

  void SetRunningStream(std::shared_ptr<GraphStream> stream);
  void NoteGrabberCallback(ISampleGrabberCB* callback);
  void CountDelivered();

 private:
  struct Event {
    enum class Kind { kCall, kReference, kLog, kNote } kind;
    std::string text;
  };
  struct Script {
    bool always = false;
    Answer answer;
    std::map<unsigned, Answer> nth;  // by number of the call since Reset
    unsigned calls = 0;
    std::function<void()> before;
  };

  Platform();

  // Disposes of one object with the label (null: any). False if there is none.
  bool DisposeOfOne(const std::string* label);
  void DisposeOfLent();
  void Append(Event::Kind kind, const std::string& text);
  std::vector<std::string> Select(bool references, bool logsAndNotes) const;

  mutable std::mutex m_mutex;
  Pc m_pc;
  Streaming m_streaming;
  bool m_processEnding = false;
  bool m_recording = true;
  std::map<std::string, Script> m_scripts;
  std::function<std::optional<Answer>(const std::string&)> m_decide;
  std::vector<Event> m_events;
  std::vector<LogLine> m_logs;
  std::vector<std::string> m_misuse;
  struct Thing {
    std::string label;
    std::function<void()> dispose;
  };
  std::map<const void*, Thing> m_alive;
  std::map<const void*, Thing> m_lent;
  std::vector<std::vector<std::uint8_t>> m_encoded;
  VideoEncoder::EncodeParam m_encodeParam{};
  std::shared_ptr<GraphStream> m_stream;
  ISampleGrabberCB* m_grabberCallback = nullptr;
  std::uint64_t m_delivered = 0;
};

}  // namespace scripted
