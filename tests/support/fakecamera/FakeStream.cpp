#include "support/fakecamera/FakeStream.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "MultiMediaEncoder.h"

namespace fake_camera {
namespace {

constexpr std::uint16_t kKilobits = 1536;

struct ReleaseEncoder {
  void operator()(VideoEncoder* encoder) const { VideoEncoder::ReleaseEncoder(encoder); }
};
using EncoderPtr = std::unique_ptr<VideoEncoder, ReleaseEncoder>;

EncoderPtr MakeEncoder(std::uint32_t width, std::uint32_t height, std::uint32_t fps,
                       std::uint32_t keyFrameInterval) {
  EncoderPtr encoder(VideoEncoder::CreateDefaultEncoder());
  VideoEncoder::EncodeParam param{};
  param.width = width;
  param.height = height;
  param.frameRate = fps;
  param.colorSpace = ColorSpace::kYuy2;
  param.colorCode = 1;
  param.outWidth = width;
  param.outHeight = height;
  param.keyFrameInterval = static_cast<std::uint16_t>(keyFrameInterval);
  param.bitRate = kKilobits;
  return encoder != nullptr && encoder->Initialize(param) ? std::move(encoder) : nullptr;
}

// Vertical bars that move by two pixels with each picture.
void Paint(VideoFrame& frame, std::uint64_t number) {
  constexpr std::uint8_t kDark = 60;
  constexpr std::uint8_t kLight = 180;
  constexpr std::uint8_t kGrey = 128;
  constexpr std::uint64_t kBarWidth = 16;
  std::vector<std::uint8_t> line;
  for (std::uint64_t column = 2 * number; column < 2 * number + frame.width; ++column) {
    line.push_back(column / kBarWidth % 2 == 0 ? kDark : kLight);
    line.push_back(kGrey);
  }
  for (std::uint8_t* next = frame.data; next != frame.data + frame.size; next += line.size()) {
    std::copy(line.begin(), line.end(), next);
  }
}

}  // namespace

FakeStream::FakeStream(const FakeSize& size, std::uint32_t requestedFps, std::uint32_t keyFrameInterval,
                       Sink sink)
    : m_size(size),
      m_requestedFps(requestedFps),
      m_keyFrameInterval(keyFrameInterval),
      m_sink(std::move(sink)),
      m_thread([this] { Run(); }) {}

FakeStream::~FakeStream() {
  {
    const std::lock_guard lock(m_mutex);
    m_isStopping = true;
  }
  m_stopping.notify_all();
  m_thread.join();
}

void FakeStream::Run() {
  const std::uint32_t width = m_size.width - m_size.crop;
  const EncoderPtr encoder = MakeEncoder(width, m_size.height, m_requestedFps, m_keyFrameInterval);
  VideoFrame frame;
  if (encoder == nullptr || !frame.AllocBuffer(width, m_size.height, ColorSpace::kYuy2)) {
    return;
  }
  AVEncodePacket packet;
  for (std::uint64_t number = 0; WaitUntil(DueTime(number)); ++number) {
    if (m_isDry || (m_size.stopAfter && number >= *m_size.stopAfter)) {
      continue;
    }
    Paint(frame, number);
    if (encoder->Encode(&frame, &packet) == 0) {
      Deliver({packet.data, packet.length}, number);
    }
  }
}

FakeStream::Clock::time_point FakeStream::DueTime(std::uint64_t number) const {
  const double fps = std::min(m_requestedFps, m_size.fps);
  const std::chrono::duration<double> time(static_cast<double>(number) / fps);
  const std::chrono::milliseconds late(number % 2 == 1 ? m_size.jitter : 0);
  return m_begin + std::chrono::duration_cast<Clock::duration>(time) + late;
}

bool FakeStream::WaitUntil(Clock::time_point due) {
  std::unique_lock lock(m_mutex);
  return !m_stopping.wait_until(lock, due, [this] { return m_isStopping; });
}

void FakeStream::Deliver(std::span<const std::uint8_t> packet, std::uint64_t number) const {
  const bool isDamaged = m_size.damage != 0 && number % m_size.damage == m_size.damage - 1;
  m_sink(isDamaged ? packet.first(packet.size() / 2) : packet);
}

}  // namespace fake_camera
