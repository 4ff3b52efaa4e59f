// Settings of the fake camera library.
//
// The environment variable NUVEQ_FAKE_CAMERA has words, separated by spaces. A size:
//
//   WxH@FPS[:FAULT[=N]]...   a size with the highest rate that it delivers
//     refuse       an open fails
//     start=N      an open takes N milliseconds
//     jitter=N     every second packet is N milliseconds late
//     damage=N     every N-th packet lacks its second half
//     stop=N       no packets follow the first N
//     crop=N       the pictures are N pixels narrower
//
// The camera:
//
//   none             there is no camera
//   rates=N,N...     the listed rates; by default those of the sizes
//   keyFrames=N      the distance of key frames in packets
//   noReports        no status is reported
//   closeResult=N    the result of a close
//   secondOpen       a second open succeeds
//   queryStops       a query stops the packets
//   lateAfterClose=N a packet follows the N-th close of an open camera
//   log=FILE         every open appends a line with its size and rate
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace fake_camera {

struct FakeSize {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t fps = 0;
  bool isRefused = false;
  std::uint32_t startTime = 0;  // milliseconds
  std::uint32_t jitter = 0;     // milliseconds
  std::uint32_t damage = 0;     // 0: none
  std::optional<std::uint32_t> stopAfter;
  std::uint32_t crop = 0;
};

struct FakeCameraSettings {
  std::vector<FakeSize> sizes;
  std::vector<std::uint32_t> rates;
  bool isMissing = false;
  std::optional<std::uint32_t> keyFrameInterval;
  bool hasNoReports = false;
  std::optional<std::int32_t> closeResult;
  bool acceptsSecondOpen = false;
  bool stopsAtQuery = false;
  std::uint32_t lateAfterClose = 0;  // 0: never
  std::string log;
};

// Throws std::invalid_argument for a word with a mistake.
FakeCameraSettings ParseFakeCamera(const std::string& text);

}  // namespace fake_camera
