#include "VideoStream.h"

#include <string>
#include <utility>

#include "CameraModel.h"

namespace uvc {
namespace {

std::string TextOf(const graph::VideoFormat& format) {
  std::string text(PixelFormatOf(format.fourCc).name);
  text += " " + std::to_string(format.width) + "x" + std::to_string(format.height) + " ";
  return text + std::to_string((kUnitsPerSecond + format.interval / 2) / format.interval) + " fps";
}

}  // namespace

VideoStream::VideoStream(EventLog& log, std::string prefix)
    : m_log(log), m_prefix(std::move(prefix)), m_sender([this] {
        const Clock::time_point now = Clock::now();
        const auto age = std::chrono::duration_cast<std::chrono::milliseconds>(now - m_created).count();
        return PayloadSender::ClockReading{DeviceTime(now), static_cast<std::uint16_t>(age & 0x7FF)};
      }) {}

std::uint32_t VideoStream::DeviceTime(Clock::time_point time) const {
  constexpr std::uint64_t kTicksPerMicrosecond = kClockFrequency / 1'000'000;
  const auto age = std::chrono::duration_cast<std::chrono::nanoseconds>(time - m_created).count();
  return static_cast<std::uint32_t>(static_cast<std::uint64_t>(age) * kTicksPerMicrosecond / 1000);
}

void VideoStream::Start(const graph::VideoFormat& format, std::size_t payloadSize, bool hasEndOfImage,
                        std::uint32_t damage) {
  Stop();
  m_damage = damage;
  m_source = std::make_unique<FrameSource>(format, hasEndOfImage);
  m_sender.Start(payloadSize);
  Log("stream " + TextOf(format));
  m_pacer.emplace(Clock::now(), static_cast<std::uint32_t>(format.interval));
}

void VideoStream::Stop() {
  if (!m_pacer) {
    return;
  }
  m_pacer.reset();
  if (m_sender.Stop()) {
    Log("unfinished " + std::to_string(m_number));
  }
  m_source.reset();
  Log("stopped after " + std::to_string(m_sender.FramesSent()) + " frames");
}

void VideoStream::Tick() {
  if (!m_pacer) {
    return;
  }
  const FramePacer::Due due = m_pacer->Advance(Clock::now(), m_sender.IsBusy());
  for (std::uint64_t i = 0; i < due.skipped; ++i) {
    Log("skipped " + std::to_string(due.firstSkipped + i));
  }
  if (due.number) {
    m_number = *due.number;
    m_sender.Send(MakeFrame(), DeviceTime(m_pacer->TimeOf(m_number)));
  }
}

// The frame m_number.
std::span<const std::uint8_t> VideoStream::MakeFrame() {
  const std::span<const std::uint8_t> frame = m_source->Make(m_number, m_brightness);
  if (m_damage == 0 || m_number % m_damage != m_damage - 1) {
    return frame;
  }
  Log("damaged " + std::to_string(m_number));
  return frame.first(frame.size() / 2);
}

void VideoStream::SetBrightness(int brightness) {
  m_brightness = brightness;
  Log("brightness " + std::to_string(brightness));
}

std::optional<VideoStream::Clock::time_point> VideoStream::Deadline() const {
  return m_pacer ? std::optional(m_pacer->Next()) : std::nullopt;
}

}  // namespace uvc
