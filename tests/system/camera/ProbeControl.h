// Stream negotiation: the probe and commit controls of the streaming interface.
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

// The negotiated parameters of a stream.
struct StreamSettings {
  std::uint8_t format = 1;  // indexes from 1
  std::uint8_t frame = 1;
  std::uint32_t interval = 0;  // units of 100 ns

  friend bool operator==(const StreamSettings&, const StreamSettings&) = default;
};

class ProbeControl {
 public:
  static constexpr std::size_t kSize = 34;
  // The size in UVC 1.0.
  static constexpr std::size_t kUvc10Size = 26;
  // Includes the payload header. A multiple of the size of the host's bulk requests, so that only the last
  // transfer of a frame is short.
  static constexpr std::uint32_t kMaxPayload = 65536;
  static constexpr std::uint32_t kHeaderSize = 12;

  explicit ProbeControl(const VideoFunction& function);

  // Returns the response to a GET request, or nullopt if the control does not support the request.
  std::optional<Bytes> Get(std::uint8_t request) const;
  // Selects the supported settings nearest to the requested ones. Returns false if data has the wrong size.
  bool Set(std::span<const std::uint8_t> data);

  const StreamSettings& Current() const { return m_current; }
  graph::VideoFormat CurrentFormat() const;
  const FrameSize& CurrentSize() const { return SizeOf(m_current); }
  std::uint32_t PayloadSize() const { return PayloadSize(m_current); }

 private:
  const StreamFormat& FormatOf(const StreamSettings& settings) const;
  const FrameSize& SizeOf(const StreamSettings& settings) const;
  std::uint32_t PayloadSize(const StreamSettings& settings) const;
  StreamSettings Nearest(StreamSettings requested) const;
  Bytes Pack(const StreamSettings& settings) const;

  const VideoFunction& m_function;
  StreamSettings m_current;
};

}  // namespace uvc
