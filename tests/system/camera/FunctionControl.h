// The video class requests of one function: stream negotiation, brightness, and why the last was refused.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>

#include "CameraModel.h"
#include "ProbeControl.h"

namespace uvc {

struct Setup {
  std::uint8_t requestType = 0;
  std::uint8_t request = 0;
  std::uint16_t value = 0;
  std::uint16_t index = 0;
  std::uint16_t length = 0;
};

// Request types of the video class.
constexpr std::uint8_t kClassToInterface = 0x21;
constexpr std::uint8_t kClassFromInterface = 0xA1;

constexpr std::uint8_t Low(std::uint16_t value) { return static_cast<std::uint8_t>(value & 0xFF); }
constexpr std::uint8_t High(std::uint16_t value) { return static_cast<std::uint8_t>(value >> 8); }

// What requests to a function cause.
struct FunctionEffects {
  std::function<void(const ProbeControl& committed)> start;
  std::function<void()> stop;
  std::function<void(int)> setBrightness;
};

class FunctionControl {
 public:
  static constexpr std::int16_t kMaxBrightness = 64;  // to either side of 0

  FunctionControl(const VideoFunction& function, FunctionEffects effects);

  // A class request to the function's streaming interface, or to its control interface. The data of the
  // answer, empty for a request of the other direction; nothing is a stall. data: sent by the host.
  std::optional<Bytes> Handle(const Setup& setup, std::span<const std::uint8_t> data);
  void StopStream() { m_effects.stop(); }

 private:
  std::optional<Bytes> Streaming(const Setup& setup, std::span<const std::uint8_t> data);
  std::optional<Bytes> Commit(const Setup& setup, std::span<const std::uint8_t> data);
  std::optional<Bytes> Brightness(const Setup& setup, std::span<const std::uint8_t> data);
  std::optional<Bytes> ErrorCode(const Setup& setup);
  std::optional<Bytes> Refuse(std::uint8_t error);

  FunctionEffects m_effects;
  ProbeControl m_probe;
  ProbeControl m_commit;
  std::int16_t m_brightness = 0;
  std::uint8_t m_error = 0;  // why the last request was refused
};

}  // namespace uvc
