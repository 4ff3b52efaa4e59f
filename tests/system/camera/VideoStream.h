// A video stream of the camera: sends frames at the negotiated rate and skips those that the host does not
// fetch in time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "EventLog.h"
#include "FramePacer.h"
#include "FrameSource.h"
#include "PayloadSender.h"

namespace uvc {

class VideoStream {
 public:
  using Clock = FramePacer::Clock;

  // prefix: prepended to each log line of the stream.
  VideoStream(EventLog& log, std::string prefix);

  // Stops a running stream. Frame 0 is due immediately. damage: as in FrameSize.
  void Start(const graph::VideoFormat& format, std::size_t payloadSize, bool hasEndOfImage,
             std::uint32_t damage);
  void Stop();

  // Sends the frame that is due, if any. Must be called at Deadline() or earlier.
  void Tick();
  std::optional<Clock::time_point> Deadline() const;

  void SetBrightness(int brightness);
  PayloadSender& Sender() { return m_sender; }
  const PayloadSender& Sender() const { return m_sender; }

 private:
  void Log(const std::string& line) { m_log.Write(m_prefix + line); }
  std::span<const std::uint8_t> MakeFrame();
  std::uint32_t DeviceTime(Clock::time_point time) const;

  EventLog& m_log;
  const std::string m_prefix;
  const Clock::time_point m_created = Clock::now();
  PayloadSender m_sender;
  int m_brightness = 0;
  std::uint32_t m_damage = 0;
  std::unique_ptr<FrameSource> m_source;
  std::optional<FramePacer> m_pacer;  // set while streaming
  std::uint64_t m_number = 0;         // of the latest frame sent
};

}  // namespace uvc
