// Handles control requests: standard requests, and class requests by function.
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
  // callbacks: one entry per function of the model.
  ControlPipe(const CameraModel& model, std::vector<FunctionCallbacks> callbacks);

  // Returns the data stage of a request from the device (empty for a request to the device), or nullopt to
  // stall. data: the data stage of a request to the device.
  std::optional<Bytes> Handle(const Setup& setup, std::span<const std::uint8_t> data);

  // Sets the configuration and stops all streams, even if it is already set. Returns false for an unknown
  // configuration.
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
