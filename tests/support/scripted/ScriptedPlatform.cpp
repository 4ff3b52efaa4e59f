#include "support/scripted/ScriptedPlatform.h"

#include <algorithm>
#include <utility>

#include "support/scripted/ScriptedGraph.h"

namespace scripted {

Platform::Platform() = default;

Platform& Platform::Get() {
  static Platform platform;
  return platform;
}

void Platform::Reset(Pc pc) {
  DisposeOfLent();
  const std::lock_guard lock(m_mutex);
  m_pc = std::move(pc);
  m_streaming = {};
  m_processEnding = false;
  m_recording = true;
  m_scripts.clear();
  m_decide = nullptr;
  m_events.clear();
  m_logs.clear();
  m_misuse.clear();
  m_alive.clear();
  m_encoded.clear();
  m_encodeParam = {};
  m_stream = nullptr;
  m_grabberCallback = nullptr;
  m_delivered = 0;
}

void Platform::SetPc(Pc pc) {
  const std::lock_guard lock(m_mutex);
  m_pc = std::move(pc);
}

void Platform::SetStreaming(Streaming streaming) {
  const std::lock_guard lock(m_mutex);
  m_streaming = std::move(streaming);
}

void Platform::Answers(const std::string& operation, Answer answer) {
  const std::lock_guard lock(m_mutex);
  m_scripts[operation].always = true;
  m_scripts[operation].answer = answer;
}

void Platform::AnswersNth(const std::string& operation, unsigned nth, Answer answer) {
  const std::lock_guard lock(m_mutex);
  Script& script = m_scripts[operation];
  script.nth[script.calls + nth] = answer;
}

void Platform::Decide(std::function<std::optional<Answer>(const std::string&)> decide) {
  const std::lock_guard lock(m_mutex);
  m_decide = std::move(decide);
}

void Platform::Before(const std::string& operation, std::function<void()> action) {
  const std::lock_guard lock(m_mutex);
  m_scripts[operation].before = std::move(action);
}

void Platform::SetProcessEnding(bool ending) {
  const std::lock_guard lock(m_mutex);
  m_processEnding = ending;
}

void Platform::SetRecording(bool recording) {
  const std::lock_guard lock(m_mutex);
  m_recording = recording;
}

bool Platform::DeliverFrame(const std::uint8_t* bytes, LONG length) {
  std::shared_ptr<GraphStream> stream;
  {
    const std::lock_guard lock(m_mutex);
    stream = m_stream;
  }
  return stream != nullptr && stream->Deliver(bytes, length);
}

bool Platform::DeliverFrame(const std::vector<std::uint8_t>& frame) {
  return DeliverFrame(frame.data(), static_cast<LONG>(frame.size()));
}

ISampleGrabberCB* Platform::GrabberCallback() const {
  const std::lock_guard lock(m_mutex);
  return m_grabberCallback;
}

std::uint64_t Platform::DeliveredFrames() const {
  const std::lock_guard lock(m_mutex);
  return m_delivered;
}

unsigned Platform::FramesInDelivery() const {
  std::shared_ptr<GraphStream> stream;
  {
    const std::lock_guard lock(m_mutex);
    stream = m_stream;
  }
  return stream == nullptr ? 0 : stream->FramesInDelivery();
}

std::vector<std::string> Platform::Select(bool references, bool logsAndNotes) const {
  const std::lock_guard lock(m_mutex);
  std::vector<std::string> texts;
  for (const Event& event : m_events) {
    const bool isExtra = event.kind == Event::Kind::kLog || event.kind == Event::Kind::kNote;
    if ((event.kind == Event::Kind::kReference && !references) || (isExtra && !logsAndNotes)) {
      continue;
    }
    texts.push_back(event.text);
  }
  return texts;
}

std::vector<std::string> Platform::Calls() const { return Select(false, false); }

std::vector<std::string> Platform::Journal() const { return Select(false, true); }

std::vector<std::string> Platform::JournalWithReferences() const { return Select(true, true); }

unsigned Platform::CallCount(const std::string& operation) const {
  const std::lock_guard lock(m_mutex);
  const auto found = m_scripts.find(operation);
  return found == m_scripts.end() ? 0 : found->second.calls;
}

std::vector<LogLine> Platform::Logs() const {
  const std::lock_guard lock(m_mutex);
  return m_logs;
}

void Platform::ClearJournal() {
  const std::lock_guard lock(m_mutex);
  m_events.clear();
  m_logs.clear();
  m_encoded.clear();
}

void Platform::Note(const std::string& text) { Append(Event::Kind::kNote, text); }

std::vector<std::string> Platform::Alive() const {
  const std::lock_guard lock(m_mutex);
  std::vector<std::string> labels;
  for (const auto& [address, thing] : m_alive) {
    labels.push_back(thing.label);
  }
  return labels;
}

bool Platform::DisposeOfOne(const std::string* label) {
  std::function<void()> dispose;
  {
    const std::lock_guard lock(m_mutex);
    const auto found = std::find_if(m_alive.begin(), m_alive.end(), [&](const auto& entry) {
      return label == nullptr || entry.second.label == *label;
    });
    if (found == m_alive.end()) {
      return false;
    }
    dispose = found->second.dispose;
  }
  // Disposing of an object may dispose of others.
  dispose();
  return true;
}

void Platform::DisposeOf(const std::string& label) {
  while (DisposeOfOne(&label)) {
  }
}

void Platform::DisposeOfAll() {
  while (DisposeOfOne(nullptr)) {
  }
  DisposeOfLent();
}

void Platform::DisposeOfLent() {
  for (;;) {
    std::function<void()> dispose;
    {
      const std::lock_guard lock(m_mutex);
      if (m_lent.empty()) {
        return;
      }
      // dispose expects a registered object.
      const auto back = m_alive.insert(m_lent.extract(m_lent.begin()));
      dispose = back.position->second.dispose;
    }
    dispose();
  }
}

std::vector<std::string> Platform::Misuse() const {
  const std::lock_guard lock(m_mutex);
  return m_misuse;
}

VideoEncoder::EncodeParam Platform::LastEncodeParam() const {
  const std::lock_guard lock(m_mutex);
  return m_encodeParam;
}

std::vector<std::vector<std::uint8_t>> Platform::EncodedFrames() const {
  const std::lock_guard lock(m_mutex);
  return m_encoded;
}

Answer Platform::Enter(const std::string& operation, const std::string& arguments) {
  Answer answer;
  std::function<void()> before;
  std::function<std::optional<Answer>(const std::string&)> decide;
  {
    const std::lock_guard lock(m_mutex);
    decide = m_decide;
    Script& script = m_scripts[operation];
    ++script.calls;
    before = script.before;
    if (script.always) {
      answer = script.answer;
    }
    if (const auto nth = script.nth.find(script.calls); nth != script.nth.end()) {
      answer = nth->second;
    }
    if (m_recording) {
      std::string text = operation;
      text.append("(").append(arguments).append(")");
      m_events.push_back({Event::Kind::kCall, std::move(text)});
    }
  }
  if (before) {
    before();
  }
  if (decide) {
    answer = decide(operation).value_or(answer);
  }
  return answer;
}

void Platform::RunBefore(const std::string& operation) {
  std::function<void()> before;
  {
    const std::lock_guard lock(m_mutex);
    before = m_scripts[operation].before;
  }
  if (before) {
    before();
  }
}

void Platform::Append(Event::Kind kind, const std::string& text) {
  const std::lock_guard lock(m_mutex);
  if (m_recording) {
    m_events.push_back({kind, text});
  }
}

void Platform::NoteReference(const std::string& text) { Append(Event::Kind::kReference, text); }

void Platform::NoteLog(LogLine line) {
  std::string text = "log: ";
  for (const wchar_t c : line.text) {
    text += c < 0x80 ? static_cast<char>(c) : '?';
  }
  Append(Event::Kind::kLog, text);
  const std::lock_guard lock(m_mutex);
  if (m_recording) {
    m_logs.push_back(std::move(line));
  }
}

void Platform::NoteMisuse(const std::string& text) {
  const std::lock_guard lock(m_mutex);
  m_misuse.push_back(text);
}

void Platform::NoteEncoded(const VideoFrame& frame) {
  const std::lock_guard lock(m_mutex);
  if (m_recording) {
    m_encoded.emplace_back(frame.data, frame.data + frame.size);
  }
}

void Platform::NoteEncodeParam(const VideoEncoder::EncodeParam& param) {
  const std::lock_guard lock(m_mutex);
  m_encodeParam = param;
}

Pc Platform::GetPc() const {
  const std::lock_guard lock(m_mutex);
  return m_pc;
}

Streaming Platform::GetStreaming() const {
  const std::lock_guard lock(m_mutex);
  return m_streaming;
}

bool Platform::IsProcessEnding() const {
  const std::lock_guard lock(m_mutex);
  return m_processEnding;
}

void Platform::Track(const void* thing, const std::string& label, std::function<void()> dispose) {
  const std::lock_guard lock(m_mutex);
  m_alive[thing] = {label, std::move(dispose)};
}

void Platform::Lend(const void* thing) {
  const std::lock_guard lock(m_mutex);
  m_lent.insert(m_alive.extract(thing));
}

bool Platform::Untrack(const void* thing) {
  const std::lock_guard lock(m_mutex);
  return m_alive.erase(thing) == 1;
}

void Platform::SetRunningStream(std::shared_ptr<GraphStream> stream) {
  const std::lock_guard lock(m_mutex);
  m_stream = std::move(stream);
}

void Platform::NoteGrabberCallback(ISampleGrabberCB* callback) {
  const std::lock_guard lock(m_mutex);
  m_grabberCallback = callback;
}

void Platform::CountDelivered() {
  const std::lock_guard lock(m_mutex);
  ++m_delivered;
}

}  // namespace scripted
