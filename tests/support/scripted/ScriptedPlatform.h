// The scripted platform: everything that the library calls and that is not its own, behaving like a PC that a
// test describes, and doing what the test says.
//
// It keeps a journal of all calls in order, counts what is alive, and lets a test say what a call answers.
// Operations are named as in the journal without arguments: "CoCreateInstance", "IMediaControl::Run".
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

// What a call answers. Calls with another kind of result use the code: functions that answer BOOL or bool
// fail for any code but S_OK; CONFIGRET and the encoder's error are the code itself.
//
// What an out pointer gets with a result other than S_OK is lent: it stays the platform's, and the library
// must neither use nor release nor free it.
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
  bool live = false;  // true: a thread of the graph's delivers frames from Run to Stop
  // Frame number n, from 0; an empty one is not delivered. Called on that thread.
  std::function<std::vector<std::uint8_t>(std::uint64_t)> frame;
};

class GraphStream;

class SCRIPTED_EXPORT Platform {
 public:
  // The one platform of the process.
  static Platform& Get();

  // --- Describing ---

  // Back to the beginning: nothing scripted, an empty journal, the given PC. Nothing may be alive.
  void Reset(Pc pc);
  // Another PC from here on, as when a device is plugged in or pulled out.
  void SetPc(Pc pc);
  void SetStreaming(Streaming streaming);
  // Every later call of the operation, or only the n-th one from now (1 is the next), answers so.
  void Answers(const std::string& operation, Answer answer);
  void AnswersNth(const std::string& operation, unsigned nth, Answer answer);
  // Asked at each later call of any operation, on the calling thread, outside the platform's locks: what it
  // answers; nullopt leaves that to the above. Null: nobody is asked.
  void Decide(std::function<std::optional<Answer>(const std::string& operation)> decide);
  // Runs before each later call of the operation, on the calling thread, outside the platform's locks.
  void Before(const std::string& operation, std::function<void()> action);
  void SetProcessEnding(bool ending);
  // Long runs do not want a journal.
  void SetRecording(bool recording);

  // --- Delivering frames by hand ---

  // As the running graph's streaming thread would, on the calling thread. False when no graph runs or its
  // grabber has no callback.
  bool DeliverFrame(const std::uint8_t* bytes, LONG length);
  bool DeliverFrame(const std::vector<std::uint8_t>& frame);
  // The callback object that a grabber was given last, for graphs that call it when they should not; null
  // before the first. Without a reference: it is the library's while that is loaded.
  ISampleGrabberCB* GrabberCallback() const;
  // Frames that the live stream has delivered since Reset.
  std::uint64_t DeliveredFrames() const;
  // Frames whose callback has not returned.
  unsigned FramesInDelivery() const;

  // --- Looking ---

  // Calls with their arguments, in order.
  std::vector<std::string> Calls() const;
  // The same, and log lines ("log: ...") and what tests noted, in one order.
  std::vector<std::string> Journal() const;
  // The same, and every AddRef and Release.
  std::vector<std::string> JournalWithReferences() const;
  unsigned CallCount(const std::string& operation) const;
  std::vector<LogLine> Logs() const;
  void ClearJournal();
  // Puts a line of the test's into the journal.
  void Note(const std::string& text);

  // What is alive: "name: references" of COM objects, labels of task memory, and so on; one line each.
  std::vector<std::string> Alive() const;
  // Ends the life of all that is alive under a label, or of everything, lent things included.
  void DisposeOf(const std::string& label);
  void DisposeOfAll();
  // Rules of the platform that the library broke.
  std::vector<std::string> Misuse() const;

  VideoEncoder::EncodeParam LastEncodeParam() const;
  // The raw frames as they were encoded, while recording.
  std::vector<std::vector<std::uint8_t>> EncodedFrames() const;

  // --- For the platform's own parts ---

  // Takes a thing that is alive out of what is counted: it is lent to the library, and not the library's.
  void Lend(const void* thing);
  // Enters a call: journals it, runs what is to run before it, and says what it answers.
  Answer Enter(const std::string& operation, const std::string& arguments);
  // Only runs what is to run before the call.
  void RunBefore(const std::string& operation);
  void NoteReference(const std::string& text);
  void NoteLog(LogLine line);
  void NoteMisuse(const std::string& text);
  void NoteEncoded(const VideoFrame& frame);
  void NoteEncodeParam(const VideoEncoder::EncodeParam& param);
  Pc GetPc() const;
  Streaming GetStreaming() const;
  bool IsProcessEnding() const;

  // A thing is alive from here on, or its label has changed. dispose ends its life.
  void Born(const void* thing, const std::string& label, std::function<void()> dispose);
  // False when the platform does not know the thing as alive.
  bool Gone(const void* thing);

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

  // Disposes of one thing that matches; false when there is none.
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
