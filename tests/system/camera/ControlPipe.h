// The camera's answers on the control pipe: standard requests, and class requests by function.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "CameraModel.h"
#include "FunctionControl.h"

namespace uvc {

class ControlPipe {
 public:
  // effects: one entry per function of the model.
  ControlPipe(const CameraModel& model, std::vector<FunctionEffects> effects);

  // The data of the answer, empty for a request of the other direction; nothing is a stall. data: what the
  // host has sent along.
  std::optional<Bytes> Handle(const Setup& setup, std::span<const std::uint8_t> data);

  // Sets the configuration and stops all streams, also when it is set already. False for one that the camera
  // does not have.
  bool SetConfiguration(std::uint8_t configuration);
  std::uint8_t Configuration() const { return m_configuration; }
  bool SetInterface(std::uint8_t interface, std::uint8_t alternate);
  void Reset();

 private:
  std::optional<Bytes> Standard(const Setup& setup);
  bool ClearFeature(const Setup& setup);
  std::optional<Bytes> Class(const Setup& setup, std::span<const std::uint8_t> data);
  void StopStreams();

  const CameraModel& m_model;
  std::vector<FunctionControl> m_functions;
  std::uint8_t m_configuration = 0;
};

}  // namespace uvc
