// The negotiation of a stream: the probe and commit controls of the streaming interface.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "CameraModel.h"

namespace uvc {

// The requests of the video class.
enum ClassRequest : std::uint8_t {
  kSetCur = 0x01,
  kGetCur = 0x81,
  kGetMin = 0x82,
  kGetMax = 0x83,
  kGetRes = 0x84,
  kGetLen = 0x85,
  kGetInfo = 0x86,
  kGetDef = 0x87,
};

// What a host and the camera have agreed upon.
struct StreamSettings {
  std::uint8_t format = 1;  // indexes from 1
  std::uint8_t frame = 1;
  std::uint32_t interval = 0;  // units of 100 ns

  friend bool operator==(const StreamSettings&, const StreamSettings&) = default;
};

class ProbeControl {
 public:
  static constexpr std::size_t kSize = 34;
  // Hosts of UVC 1.0 know less of it.
  static constexpr std::size_t kOldSize = 26;
  // A payload's header included. A multiple of what hosts fetch at a time, so that none of a payload's pieces
  // but the last one of a frame is short.
  static constexpr std::uint32_t kLargestPayload = 65536;
  static constexpr std::uint32_t kHeaderSize = 12;

  explicit ProbeControl(const VideoFunction& function);

  // The answer to a request other than kSetCur; nothing when the control does not have it.
  std::optional<Bytes> Get(std::uint8_t request) const;
  // Takes what comes nearest to the host's wish. False when the data are none of this control.
  bool Set(std::span<const std::uint8_t> data);

  const StreamSettings& Current() const { return m_current; }
  graph::VideoFormat CurrentFormat() const;
  std::uint32_t PayloadSize() const { return PayloadSize(m_current); }

 private:
  const StreamFormat& FormatOf(const StreamSettings& settings) const;
  const FrameSize& SizeOf(const StreamSettings& settings) const;
  std::uint32_t PayloadSize(const StreamSettings& settings) const;
  StreamSettings Nearest(StreamSettings wish) const;
  Bytes Pack(const StreamSettings& settings) const;

  const VideoFunction& m_function;
  StreamSettings m_current;
};

}  // namespace uvc
