// The bodies of long responses: the camera's packets in three forms, and the file of a recording.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "view/BackgroundThread.h"
#include "view/FragmentedMp4.h"
#include "view/Http.h"
#include "view/LiveStream.h"
#include "view/ViewRecording.h"

namespace nuveqcam {

// Counts the viewers. Used by the server's thread only.
using ViewerCount = std::shared_ptr<std::size_t>;

// A body of packets. Its subscription begins with Start, and from then on it counts as a viewer.
class PacketBody : public BodySource {
 public:
  // The stream must outlive the object.
  PacketBody(LiveStream& stream, ViewerCount count);
  PacketBody(const PacketBody&) = delete;
  PacketBody& operator=(const PacketBody&) = delete;
  ~PacketBody() override;

  void Start(std::function<void()> onReady) override;

 protected:
  LivePacketPtr NextPacket() { return m_subscription->Next(); }
  std::uint64_t SkippedFrames() const { return m_subscription->SkippedFrames(); }
  // Before Start: does nothing.
  void NotifyReady() const;

 private:
  LiveStream& m_stream;
  ViewerCount m_count;
  std::function<void()> m_onReady;
  std::unique_ptr<LiveStream::Subscription> m_subscription;  // null before Start
};

// The page's stream: records of packets and states. Begins with a state.
class RecordBody : public PacketBody {
 public:
  // `makeState` returns the JSON text for a viewer that has skipped so many frames.
  RecordBody(LiveStream& stream, ViewerCount count, std::function<std::string(std::uint64_t)> makeState);

  // The state has changed: it becomes the next record.
  void SendState();
  BodyState Next(BodyPart& part) override;

 private:
  std::function<std::string(std::uint64_t)> m_makeState;
  bool m_isStateDue = true;
};

// The packets as they are.
class AnnexBBody : public PacketBody {
 public:
  using PacketBody::PacketBody;

  BodyState Next(BodyPart& part) override;
};

// Fragmented MP4. Ends when the picture size changes.
class Mp4Body : public PacketBody {
 public:
  Mp4Body(LiveStream& stream, ViewerCount count, std::uint32_t fps);

  // Throws Failure (kUnexpected).
  BodyState Next(BodyPart& part) override;

 private:
  FragmentedMp4 m_mp4;
};

// The file of a finished recording, which is kept until it is sent. The background thread reads it, one part
// ahead of what is sent.
class RecordingBody : public BodySource {
 public:
  RecordingBody(std::shared_ptr<ViewRecording> recording, std::shared_ptr<BackgroundTasks> background);
  RecordingBody(const RecordingBody&) = delete;
  RecordingBody& operator=(const RecordingBody&) = delete;
  ~RecordingBody() override;

  std::optional<std::uint64_t> Size() const override { return m_size; }
  void Start(std::function<void()> onReady) override;
  // Throws Failure (kUnexpected) if the file cannot be read.
  BodyState Next(BodyPart& part) override;

 private:
  class Reader;

  void ReadAhead();

  const std::uint64_t m_size;
  const std::shared_ptr<BackgroundTasks> m_background;
  std::shared_ptr<Reader> m_reader;  // shared with the task in the background
};

}  // namespace nuveqcam
