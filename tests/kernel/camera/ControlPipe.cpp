#include "ControlPipe.h"

#include <utility>

#include "Descriptors.h"

namespace uvc {
namespace {

// Request types.
constexpr std::uint8_t kFromDevice = 0x80;
constexpr std::uint8_t kFromInterface = 0x81;
constexpr std::uint8_t kFromEndpoint = 0x82;
constexpr std::uint8_t kToEndpoint = 0x02;
constexpr std::uint8_t kClassToInterface = 0x21;
constexpr std::uint8_t kClassFromInterface = 0xA1;

// Standard requests.
constexpr std::uint8_t kGetStatus = 0;
constexpr std::uint8_t kClearFeature = 1;
constexpr std::uint8_t kGetDescriptor = 6;

// Control selectors.
constexpr std::uint8_t kErrorCodeControl = 2;   // of the control interface
constexpr std::uint8_t kBrightnessControl = 2;  // of a processing unit
constexpr std::uint8_t kProbeControl = 1;       // of the streaming interface
constexpr std::uint8_t kCommitControl = 2;

// What the error code control says.
constexpr std::uint8_t kOutOfRange = 4;
constexpr std::uint8_t kInvalidUnit = 5;
constexpr std::uint8_t kInvalidControl = 6;
constexpr std::uint8_t kInvalidRequest = 7;

constexpr std::uint8_t Low(std::uint16_t value) { return static_cast<std::uint8_t>(value & 0xFF); }
constexpr std::uint8_t High(std::uint16_t value) { return static_cast<std::uint8_t>(value >> 8); }

Bytes Packed(int value) {
  const auto bits = static_cast<std::uint16_t>(value & 0xFFFF);
  return {Low(bits), High(bits)};
}

}  // namespace

ControlPipe::ControlPipe(const CameraModel& model, Effects effects)
    : m_model(model), m_effects(std::move(effects)), m_probe(model), m_commit(model) {}

std::optional<Bytes> ControlPipe::Handle(const Setup& setup, std::span<const std::uint8_t> data) {
  const bool isOfClass = setup.requestType == kClassToInterface || setup.requestType == kClassFromInterface;
  std::optional<Bytes> answer = isOfClass ? Class(setup, data) : Standard(setup);
  if (answer && answer->size() > setup.length) {
    answer->resize(setup.length);
  }
  return answer;
}

std::optional<Bytes> ControlPipe::Standard(const Setup& setup) {
  if (setup.request == kGetDescriptor && setup.requestType == kFromDevice) {
    return DescriptorOf(m_model, High(setup.value), Low(setup.value));
  }
  const bool asksForStatus = setup.request == kGetStatus &&
                             (setup.requestType == kFromDevice || setup.requestType == kFromInterface ||
                              setup.requestType == kFromEndpoint);
  if (asksForStatus) {
    return Bytes{0, 0};
  }
  if (setup.request == kClearFeature && setup.requestType == kToEndpoint && ClearFeature(setup)) {
    return Bytes{};
  }
  return std::nullopt;
}

bool ControlPipe::ClearFeature(const Setup& setup) {
  const bool isHaltOfStream = setup.value == 0 && setup.index == kStreamEndpoint;
  if (isHaltOfStream) {
    m_effects.stop();
  }
  return isHaltOfStream;
}

std::optional<Bytes> ControlPipe::Refuse(std::uint8_t error) {
  m_error = error;
  return std::nullopt;
}

std::optional<Bytes> ControlPipe::Class(const Setup& setup, std::span<const std::uint8_t> data) {
  const bool isSet = setup.requestType == kClassToInterface;
  if (isSet != (setup.request == kSetCur)) {
    return Refuse(kInvalidRequest);
  }
  const std::uint8_t entity = High(setup.index);
  const std::uint8_t control = High(setup.value);
  if (Low(setup.index) == kControlInterface && entity == 0 && control == kErrorCodeControl) {
    return ErrorCode(setup);
  }
  m_error = 0;
  if (Low(setup.index) == kStreamInterface && entity == 0) {
    return Streaming(setup, data);
  }
  if (Low(setup.index) != kControlInterface || entity != kProcessingUnit) {
    return Refuse(entity == 0 ? kInvalidControl : kInvalidUnit);
  }
  return control == kBrightnessControl ? Brightness(setup, data) : Refuse(kInvalidControl);
}

std::optional<Bytes> ControlPipe::ErrorCode(const Setup& setup) {
  switch (setup.request) {
    case kGetCur:
      return Bytes{std::exchange(m_error, std::uint8_t{0})};
    case kGetInfo:
      return Bytes{1};  // can be read only
    default:
      return Refuse(kInvalidRequest);
  }
}

std::optional<Bytes> ControlPipe::Streaming(const Setup& setup, std::span<const std::uint8_t> data) {
  if (High(setup.value) == kCommitControl) {
    return Commit(setup, data);
  }
  if (High(setup.value) != kProbeControl) {
    return Refuse(kInvalidControl);
  }
  if (setup.request == kSetCur) {
    return m_probe.Set(data) ? Bytes{} : Refuse(kInvalidRequest);
  }
  std::optional<Bytes> answer = m_probe.Get(setup.request);
  return answer ? answer : Refuse(kInvalidRequest);
}

std::optional<Bytes> ControlPipe::Commit(const Setup& setup, std::span<const std::uint8_t> data) {
  switch (setup.request) {
    case kSetCur:
      if (!m_commit.Set(data)) {
        return Refuse(kInvalidRequest);
      }
      m_effects.start(m_commit);
      return Bytes{};
    case kGetCur:
    case kGetLen:
    case kGetInfo:
      return m_commit.Get(setup.request);
    default:
      return Refuse(kInvalidRequest);
  }
}

std::optional<Bytes> ControlPipe::Brightness(const Setup& setup, std::span<const std::uint8_t> data) {
  switch (setup.request) {
    case kSetCur: {
      if (data.size() != 2) {
        return Refuse(kInvalidRequest);
      }
      const auto value = static_cast<std::int16_t>(data[0] | data[1] << 8);
      if (value < -kLargestBrightness || value > kLargestBrightness) {
        return Refuse(kOutOfRange);
      }
      m_brightness = value;
      m_effects.setBrightness(value);
      return Bytes{};
    }
    case kGetCur:
      return Packed(m_brightness);
    case kGetMin:
      return Packed(-kLargestBrightness);
    case kGetMax:
      return Packed(kLargestBrightness);
    case kGetRes:
      return Packed(1);
    case kGetDef:
      return Packed(0);
    case kGetLen:
      return Packed(2);
    case kGetInfo:
      return Bytes{3};  // can be read and set
    default:
      return Refuse(kInvalidRequest);
  }
}

bool ControlPipe::SetConfiguration(std::uint8_t configuration) {
  if (configuration > kConfiguration) {
    return false;
  }
  m_effects.stop();
  m_configuration = configuration;
  return true;
}

bool ControlPipe::SetInterface(std::uint8_t interface, std::uint8_t alternate) {
  if (interface > kStreamInterface || alternate != 0) {
    return false;
  }
  if (interface == kStreamInterface) {
    m_effects.stop();
  }
  return true;
}

void ControlPipe::Reset() {
  m_effects.stop();
  m_configuration = 0;
}

}  // namespace uvc
