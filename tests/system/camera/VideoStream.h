// The stream of the camera: frames at the pace that has been negotiated, as long as the host takes them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "EventLog.h"
#include "FramePacer.h"
#include "FrameSource.h"
#include "PayloadSender.h"

namespace uvc {

class VideoStream {
 public:
  using Clock = FramePacer::Clock;

  // prefix: of each line that the stream writes to the log.
  VideoStream(EventLog& log, std::string prefix);

  // A stream that runs already ends. Tick 0 is now.
  void Start(const graph::VideoFormat& format, std::size_t payloadSize, bool hasEndOfImage);
  void Stop();

  // Sends the frame that is due, if any. To be called not later than Deadline.
  void Tick();
  std::optional<Clock::time_point> Deadline() const;

  void SetBrightness(int brightness);
  PayloadSender& Sender() { return m_sender; }

 private:
  void Log(const std::string& line) { m_log.Write(m_prefix + line); }
  std::uint32_t DeviceTime(Clock::time_point time) const;

  EventLog& m_log;
  const std::string m_prefix;
  const Clock::time_point m_born = Clock::now();
  PayloadSender m_sender;
  int m_brightness = 0;
  std::unique_ptr<FrameSource> m_source;
  std::optional<FramePacer> m_pacer;  // while it streams
  std::uint64_t m_number = 0;         // of the last frame that was sent
};

}  // namespace uvc
