#include "FunctionControl.h"

#include <utility>

namespace uvc {
namespace {

// Control selectors.
constexpr std::uint8_t kErrorCodeControl = 2;   // control interface
constexpr std::uint8_t kBrightnessControl = 2;  // processing unit
constexpr std::uint8_t kProbeControl = 1;       // streaming interface
constexpr std::uint8_t kCommitControl = 2;      // streaming interface

// Values of the error code control.
constexpr std::uint8_t kWrongState = 2;
constexpr std::uint8_t kOutOfRange = 4;
constexpr std::uint8_t kInvalidUnit = 5;
constexpr std::uint8_t kInvalidControl = 6;
constexpr std::uint8_t kInvalidRequest = 7;

Bytes Packed(int value) {
  const auto bits = static_cast<std::uint16_t>(value & 0xFFFF);
  return {Low(bits), High(bits)};
}

}  // namespace

FunctionControl::FunctionControl(const VideoFunction& function, FunctionCallbacks callbacks)
    : m_callbacks(std::move(callbacks)), m_probe(function), m_commit(function) {}

std::optional<Bytes> FunctionControl::Stall(std::uint8_t error) {
  m_error = error;
  return std::nullopt;
}

std::optional<Bytes> FunctionControl::Handle(const Setup& setup, std::span<const std::uint8_t> data) {
  const bool isSet = setup.requestType == kClassToInterface;
  if (isSet != (setup.request == kSetCur)) {
    return Stall(kInvalidRequest);
  }
  const bool isToStream = IsStreamInterface(Low(setup.index));
  const std::uint8_t entity = High(setup.index);
  const std::uint8_t control = High(setup.value);
  if (!isToStream && entity == 0 && control == kErrorCodeControl) {
    return ErrorCode(setup);
  }
  m_error = 0;
  if (isToStream && entity == 0) {
    return Streaming(setup, data);
  }
  if (isToStream || entity != kProcessingUnit) {
    return Stall(entity == 0 ? kInvalidControl : kInvalidUnit);
  }
  return control == kBrightnessControl ? Brightness(setup, data) : Stall(kInvalidControl);
}

std::optional<Bytes> FunctionControl::ErrorCode(const Setup& setup) {
  switch (setup.request) {
    case kGetCur:
      return Bytes{std::exchange(m_error, std::uint8_t{0})};
    case kGetInfo:
      return Bytes{1};  // supports GET only
    default:
      return Stall(kInvalidRequest);
  }
}

std::optional<Bytes> FunctionControl::Streaming(const Setup& setup, std::span<const std::uint8_t> data) {
  if (High(setup.value) == kCommitControl) {
    return Commit(setup, data);
  }
  if (High(setup.value) != kProbeControl) {
    return Stall(kInvalidControl);
  }
  if (setup.request == kSetCur) {
    return m_probe.Set(data) ? Bytes{} : Stall(kInvalidRequest);
  }
  std::optional<Bytes> answer = m_probe.Get(setup.request);
  return answer ? answer : Stall(kInvalidRequest);
}

std::optional<Bytes> FunctionControl::Commit(const Setup& setup, std::span<const std::uint8_t> data) {
  switch (setup.request) {
    case kSetCur:
      if (!m_commit.Set(data)) {
        return Stall(kInvalidRequest);
      }
      if (m_commit.CurrentSize().isRefused || !PixelFormatOf(m_commit.CurrentFormat().fourCc).canStream) {
        return Stall(kWrongState);
      }
      m_callbacks.start(m_commit);
      return Bytes{};
    case kGetCur:
    case kGetLen:
    case kGetInfo:
      return m_commit.Get(setup.request);
    default:
      return Stall(kInvalidRequest);
  }
}

std::optional<Bytes> FunctionControl::Brightness(const Setup& setup, std::span<const std::uint8_t> data) {
  switch (setup.request) {
    case kSetCur: {
      if (data.size() != 2) {
        return Stall(kInvalidRequest);
      }
      const auto value = static_cast<std::int16_t>(data[0] | data[1] << 8);
      if (value < -kMaxBrightness || value > kMaxBrightness) {
        return Stall(kOutOfRange);
      }
      m_brightness = value;
      m_callbacks.setBrightness(value);
      return Bytes{};
    }
    case kGetCur:
      return Packed(m_brightness);
    case kGetMin:
      return Packed(-kMaxBrightness);
    case kGetMax:
      return Packed(kMaxBrightness);
    case kGetRes:
      return Packed(1);
    case kGetDef:
      return Packed(0);
    case kGetLen:
      return Packed(2);
    case kGetInfo:
      return Bytes{3};  // supports GET and SET
    default:
      return Stall(kInvalidRequest);
  }
}

}  // namespace uvc
