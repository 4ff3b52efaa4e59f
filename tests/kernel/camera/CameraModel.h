// What camera this is: its identity, its speed and the table of what it can deliver.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "VideoFormat.h"

namespace uvc {

using Bytes = std::vector<std::uint8_t>;

enum class Speed { kFull, kHigh };

// One size of a format. Intervals in units of 100 ns, ascending, at least one.
struct FrameSize {
  std::uint16_t width = 0;
  std::uint16_t height = 0;
  std::vector<std::uint32_t> intervals;
  std::uint32_t defaultInterval = 0;

  // Of an uncompressed frame; no compressed one is allowed to be larger.
  std::uint32_t LargestFrame() const { return std::uint32_t{2} * width * height; }
};

// Format and frame indexes of the device count from 1 in the order of these lists.
struct StreamFormat {
  std::uint32_t fourCc = 0;  // kYuyv or kMjpg
  std::vector<FrameSize> sizes;
};

struct CameraModel {
  Speed speed = Speed::kHigh;
  std::uint16_t vendor = 0x04f2;
  std::uint16_t product = 0xb6be;
  std::string manufacturer = "Nuveq";
  std::string name = "Integrated Camera";
  std::string serial = "0001";
  std::vector<StreamFormat> formats;
};

constexpr std::uint32_t kUnitsInSecond = 10'000'000;
constexpr std::uint16_t kDeviceVersion = 0x0100;
constexpr std::uint8_t kConfiguration = 1;
constexpr std::uint8_t kControlInterface = 0;
constexpr std::uint8_t kStreamInterface = 1;
constexpr std::uint8_t kStreamEndpoint = 0x81;
constexpr std::uint8_t kProcessingUnit = 2;
constexpr std::uint32_t kClockFrequency = 48'000'000;  // of the clock in payload headers

constexpr std::uint16_t BulkPacketSize(Speed speed) { return speed == Speed::kHigh ? 512 : 64; }

}  // namespace uvc
