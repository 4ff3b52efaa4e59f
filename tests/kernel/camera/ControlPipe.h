// The camera's answers on the control pipe: standard requests and those of the video class.
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

class ControlPipe {
 public:
  static constexpr std::int16_t kLargestBrightness = 64;  // to either side

  // What requests bring about.
  struct Effects {
    std::function<void(const ProbeControl& committed)> start;
    std::function<void()> stop;
    std::function<void(int)> setBrightness;
  };

  ControlPipe(const CameraModel& model, Effects effects);

  // The data of the answer, empty for a request of the other direction; nothing is a stall. data: what the
  // host has sent along.
  std::optional<Bytes> Handle(const Setup& setup, std::span<const std::uint8_t> data);

  // The configuration that is set; another one stops the stream, and so does the same one once more. False
  // for one that the camera has not got.
  bool SetConfiguration(std::uint8_t configuration);
  std::uint8_t Configuration() const { return m_configuration; }
  bool SetInterface(std::uint8_t interface, std::uint8_t alternate);
  void Reset();

 private:
  std::optional<Bytes> Standard(const Setup& setup);
  bool ClearFeature(const Setup& setup);
  std::optional<Bytes> Class(const Setup& setup, std::span<const std::uint8_t> data);
  std::optional<Bytes> Streaming(const Setup& setup, std::span<const std::uint8_t> data);
  std::optional<Bytes> Commit(const Setup& setup, std::span<const std::uint8_t> data);
  std::optional<Bytes> Brightness(const Setup& setup, std::span<const std::uint8_t> data);
  std::optional<Bytes> ErrorCode(const Setup& setup);
  std::optional<Bytes> Refuse(std::uint8_t error);

  const CameraModel& m_model;
  const Effects m_effects;
  ProbeControl m_probe;
  ProbeControl m_commit;
  std::int16_t m_brightness = 0;
  std::uint8_t m_error = 0;  // why the last request was refused
  std::uint8_t m_configuration = 0;
};

}  // namespace uvc
