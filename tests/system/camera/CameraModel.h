// The configuration of the camera: identity, speed, and its functions with their formats.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "PixelFormats.h"

namespace uvc {

using Bytes = std::vector<std::uint8_t>;

enum class Speed { kFull, kHigh };

// One frame size of a format. Intervals are in units of 100 ns, ascending, at least one.
struct FrameSize {
  std::uint16_t width = 0;
  std::uint16_t height = 0;
  std::vector<std::uint32_t> intervals;
  std::uint32_t defaultInterval = 0;
  bool isRefused = false;    // the camera stalls the commit request
  std::uint32_t damage = 0;  // every so many frames, one lacks its second half; 0: none
};

// A format with its frame sizes. Format and frame indexes start at 1, in the order of the lists.
struct StreamFormat {
  std::uint32_t fourCc = 0;  // one of PixelFormats()
  std::vector<FrameSize> sizes;

  // The size of an uncompressed frame in bytes, or the maximum size of a compressed frame.
  std::uint32_t MaxFrameBytes(const FrameSize& size) const {
    return std::uint32_t{size.width} * size.height * PixelFormatOf(fourCc).bitsPerPixel / 8;
  }
};

// A video function: a video control interface, a video streaming interface and its bulk endpoint. The kernel
// creates one capture device for each function.
struct VideoFunction {
  std::string name;
  std::vector<StreamFormat> formats;  // at least one
};

struct CameraModel {
  Speed speed = Speed::kHigh;
  std::uint16_t vendor = 0x04f2;
  std::uint16_t product = 0xb6be;
  std::string manufacturer = "Nuveq";
  std::string name = "Integrated Camera";
  std::string serial = "0001";
  bool hasEndOfImage = true;             // false: MJPG frames end without the EOI marker
  std::uint32_t unpluggedStream = 0;     // in which the camera unplugs itself, counted from 1; 0: none
  std::vector<VideoFunction> functions;  // at least one
};

constexpr std::uint32_t kUnitsPerSecond = 10'000'000;
constexpr std::uint16_t kDeviceVersion = 0x0100;
constexpr std::uint8_t kConfiguration = 1;
constexpr std::uint8_t kProcessingUnit = 2;            // unit id in each function
constexpr std::uint32_t kClockFrequency = 48'000'000;  // Hz, of the device clock in payload headers
constexpr std::size_t kMaxFunctions = 4;

// Function N, counted from 0, has the interfaces 2N (control) and 2N+1 (streaming).
constexpr std::uint8_t ControlInterface(std::size_t function) {
  return static_cast<std::uint8_t>(2 * function);
}
constexpr std::uint8_t StreamInterface(std::size_t function) {
  return static_cast<std::uint8_t>(2 * function + 1);
}
constexpr std::uint8_t StreamEndpoint(std::size_t function) {
  return static_cast<std::uint8_t>(0x81 + function);
}
constexpr std::size_t FunctionOfInterface(std::uint8_t interface) { return interface / 2; }
constexpr bool IsStreamInterface(std::uint8_t interface) { return interface % 2 == 1; }
// Returns an out-of-range index for an endpoint that does not stream.
constexpr std::size_t FunctionOfEndpoint(std::uint8_t endpoint) {
  return static_cast<std::size_t>(static_cast<std::uint8_t>(endpoint - 0x81));
}

constexpr std::uint16_t BulkPacketSize(Speed speed) { return speed == Speed::kHigh ? 512 : 64; }

}  // namespace uvc
