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

// Standard requests.
constexpr std::uint8_t kGetStatus = 0;
constexpr std::uint8_t kClearFeature = 1;
constexpr std::uint8_t kGetDescriptor = 6;

}  // namespace

ControlPipe::ControlPipe(const CameraModel& model, std::vector<FunctionCallbacks> callbacks)
    : m_model(model) {
  for (std::size_t i = 0; i < model.functions.size(); ++i) {
    m_functions.emplace_back(model.functions[i], std::move(callbacks.at(i)));
  }
}

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
  const std::size_t function = FunctionOfEndpoint(Low(setup.index));
  const bool isHaltOfStream = setup.value == 0 && function < m_functions.size();
  if (isHaltOfStream) {
    m_functions[function].StopStream();
  }
  return isHaltOfStream;
}

std::optional<Bytes> ControlPipe::Class(const Setup& setup, std::span<const std::uint8_t> data) {
  const std::size_t function = FunctionOfInterface(Low(setup.index));
  return function < m_functions.size() ? m_functions[function].Handle(setup, data) : std::nullopt;
}

bool ControlPipe::SetConfiguration(std::uint8_t configuration) {
  if (configuration > kConfiguration) {
    return false;
  }
  StopStreams();
  m_configuration = configuration;
  return true;
}

bool ControlPipe::SetInterface(std::uint8_t interface, std::uint8_t alternate) {
  const std::size_t function = FunctionOfInterface(interface);
  if (function >= m_functions.size() || alternate != 0) {
    return false;
  }
  if (IsStreamInterface(interface)) {
    m_functions[function].StopStream();
  }
  return true;
}

void ControlPipe::Reset() {
  StopStreams();
  m_configuration = 0;
}

void ControlPipe::StopStreams() {
  for (FunctionControl& function : m_functions) {
    function.StopStream();
  }
}

}  // namespace uvc
