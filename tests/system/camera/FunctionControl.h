// Handles the video class requests of one function: stream negotiation, brightness and the error code.
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

// Callbacks that requests to a function invoke.
struct FunctionCallbacks {
  std::function<void(const ProbeControl& committed)> start;
  std::function<void()> stop;
  std::function<void(int)> setBrightness;
};

class FunctionControl {
 public:
  static constexpr std::int16_t kMaxBrightness = 64;  // the minimum is -kMaxBrightness

  FunctionControl(const VideoFunction& function, FunctionCallbacks callbacks);

  // Handles a class request to the function's control or streaming interface. Returns the data stage of a
  // request from the device (empty for a request to the device), or nullopt to stall. data: the data stage of
  // a request to the device.
  std::optional<Bytes> Handle(const Setup& setup, std::span<const std::uint8_t> data);
  void StopStream() { m_callbacks.stop(); }

 private:
  std::optional<Bytes> Streaming(const Setup& setup, std::span<const std::uint8_t> data);
  std::optional<Bytes> Commit(const Setup& setup, std::span<const std::uint8_t> data);
  std::optional<Bytes> Brightness(const Setup& setup, std::span<const std::uint8_t> data);
  std::optional<Bytes> ErrorCode(const Setup& setup);
  std::optional<Bytes> Stall(std::uint8_t error);

  FunctionCallbacks m_callbacks;
  ProbeControl m_probe;
  ProbeControl m_commit;
  std::int16_t m_brightness = 0;
  std::uint8_t m_error = 0;  // error code of the last request
};

}  // namespace uvc
