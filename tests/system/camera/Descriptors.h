// The camera's USB descriptors.
#pragma once

#include <cstdint>
#include <optional>

#include "CameraModel.h"

namespace uvc {

enum DescriptorType : std::uint8_t {
  kDeviceDescriptor = 1,
  kConfigurationDescriptor = 2,
  kStringDescriptor = 3,
  kInterfaceDescriptor = 4,
  kEndpointDescriptor = 5,
  kQualifierDescriptor = 6,
  kOtherSpeedDescriptor = 7,
  kInterfaceAssociationDescriptor = 11,
  kClassInterfaceDescriptor = 0x24,
};

// Returns the descriptor with the type and index, or nullopt if there is none.
std::optional<Bytes> DescriptorOf(const CameraModel& model, std::uint8_t type, std::uint8_t index);

}  // namespace uvc
