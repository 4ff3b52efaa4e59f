#include "view/StreamBodies.h"

#include <fstream>
#include <ios>
#include <mutex>
#include <new>
#include <utility>

#include "cli/Failure.h"
#include "view/ViewApi.h"

namespace nuveqcam {
namespace {

constexpr std::size_t kFilePartBytes = std::size_t{128} * 1024;

void SetToPacket(BodyPart& part, LivePacketPtr packet) {
  part.bytes = packet->packet.bytes;
  part.owner = std::move(packet);
}

}  // namespace

PacketBody::PacketBody(LiveStream& stream, ViewerCount count) : m_stream(stream), m_count(std::move(count)) {}

PacketBody::~PacketBody() {
  if (m_subscription) {
    --*m_count;
  }
}

void PacketBody::Start(std::function<void()> onReady) {
  m_onReady = std::move(onReady);
  m_subscription = m_stream.Subscribe(m_onReady);
  ++*m_count;
}

void PacketBody::NotifyReady() const {
  if (m_onReady) {
    m_onReady();
  }
}

RecordBody::RecordBody(LiveStream& stream, ViewerCount count,
                       std::function<std::string(std::uint64_t)> makeState)
    : PacketBody(stream, std::move(count)), m_makeState(std::move(makeState)) {}

void RecordBody::SendState() {
  m_isStateDue = true;
  NotifyReady();
}

BodyState RecordBody::Next(BodyPart& part) {
  if (std::exchange(m_isStateDue, false)) {
    const std::string state = m_makeState(SkippedFrames());
    part.head = RecordHeader(RecordKind::kState, state.size(), false, 0, Clock::now());
    part.head.insert(part.head.end(), state.begin(), state.end());
    return BodyState::kPart;
  }
  LivePacketPtr packet = NextPacket();
  if (!packet) {
    return BodyState::kWait;
  }
  part.head = RecordHeader(RecordKind::kPacket, packet->packet.bytes.size(), packet->isKeyFrame,
                           packet->number, packet->packet.arrival);
  SetToPacket(part, std::move(packet));
  return BodyState::kPart;
}

BodyState AnnexBBody::Next(BodyPart& part) {
  LivePacketPtr packet = NextPacket();
  if (!packet) {
    return BodyState::kWait;
  }
  SetToPacket(part, std::move(packet));
  return BodyState::kPart;
}

Mp4Body::Mp4Body(LiveStream& stream, ViewerCount count, std::uint32_t fps)
    : PacketBody(stream, std::move(count)), m_mp4(fps) {}

BodyState Mp4Body::Next(BodyPart& part) {
  while (const LivePacketPtr packet = NextPacket()) {
    if (!m_mp4.CanAppend(*packet)) {
      return BodyState::kEnd;
    }
    part.head = m_mp4.Append(*packet);
    if (!part.head.empty()) {
      return BodyState::kPart;
    }
  }
  return BodyState::kWait;
}

// Thread-safe.
class RecordingBody::Reader {
 public:
  explicit Reader(std::shared_ptr<ViewRecording> recording) : m_recording(std::move(recording)) {}

  void Start(std::function<void()> onReady) {
    const std::lock_guard lock(m_mutex);
    m_onReady = std::move(onReady);
  }
  // onReady is not called after it returns.
  void Stop() {
    const std::lock_guard lock(m_mutex);
    m_onReady = nullptr;
  }

  // Called in the background, one call at a time, and not before the previous part was taken.
  void Read() {
    std::optional<std::vector<std::uint8_t>> part;
    try {
      part = ReadPart();
    } catch (const std::bad_alloc&) {
      part.reset();
    }
    const std::lock_guard lock(m_mutex);
    m_hasFailed = !part;
    m_part = std::move(part);
    if (m_onReady) {
      m_onReady();
    }
  }

  BodyState Take(BodyPart& part) {
    const std::lock_guard lock(m_mutex);
    if (m_hasFailed) {
      throw Failure(ExitCode::kUnexpected,
                    "cannot read the recording in the folder for temporary files; record again");
    }
    if (!m_part) {
      return BodyState::kWait;
    }
    if (m_part->empty()) {
      m_recording->NoteDownload();
      return BodyState::kEnd;
    }
    part.head = std::move(*m_part);
    m_part.reset();
    return BodyState::kPart;
  }

 private:
  // Empty at the end of the file; nullopt if it cannot be read.
  std::optional<std::vector<std::uint8_t>> ReadPart() {
    if (!m_file.is_open()) {
      m_file.open(m_recording->File(), std::ios::binary);
    }
    std::vector<std::uint8_t> part(kFilePartBytes);
    m_file.read(reinterpret_cast<char*>(part.data()), static_cast<std::streamsize>(part.size()));
    if (!m_file.is_open() || m_file.bad()) {
      return std::nullopt;
    }
    part.resize(static_cast<std::size_t>(m_file.gcount()));
    return part;
  }

  const std::shared_ptr<ViewRecording> m_recording;
  std::ifstream m_file;  // used by Read only; closed before the recording is removed

  std::mutex m_mutex;
  // Protected by m_mutex.
  std::function<void()> m_onReady;
  std::optional<std::vector<std::uint8_t>> m_part;  // read, and not taken; empty: the end
  bool m_hasFailed = false;
};

RecordingBody::RecordingBody(std::shared_ptr<ViewRecording> recording,
                             std::shared_ptr<BackgroundTasks> background)
    : m_size(recording->FileSize()),
      m_background(std::move(background)),
      m_reader(std::make_shared<Reader>(std::move(recording))) {}

RecordingBody::~RecordingBody() {
  m_reader->Stop();
  try {
    // The background thread closes the file.
    m_background->Add([reader = std::move(m_reader)] {});
  } catch (const std::bad_alloc&) {
    m_reader.reset();
  }
}

void RecordingBody::Start(std::function<void()> onReady) {
  m_reader->Start(std::move(onReady));
  ReadAhead();
}

BodyState RecordingBody::Next(BodyPart& part) {
  const BodyState state = m_reader->Take(part);
  if (state == BodyState::kPart) {
    ReadAhead();
  }
  return state;
}

void RecordingBody::ReadAhead() {
  m_background->Add([reader = m_reader] { reader->Read(); });
}

}  // namespace nuveqcam
