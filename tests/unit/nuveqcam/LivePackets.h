// Packets for the tests of live streams. Only the key frames of EncodedKeyFrame.h can be decoded.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "view/LiveStream.h"

namespace nuveqcam {

// At least 5 bytes.
inline Packet SliceOfSize(std::uint8_t header, std::size_t size, Clock::time_point arrival) {
  std::vector<std::uint8_t> bytes(size, 0xFF);
  const std::vector<std::uint8_t> begin{0, 0, 0, 1, header};
  std::copy(begin.begin(), begin.end(), bytes.begin());
  return {std::move(bytes), arrival};
}

inline Packet IdrSlice(std::size_t size = 10, Clock::time_point arrival = Clock::now()) {
  return SliceOfSize(0x65, size, arrival);
}

inline Packet NonIdrSlice(std::size_t size = 10, Clock::time_point arrival = Clock::now()) {
  return SliceOfSize(0x61, size, arrival);
}

}  // namespace nuveqcam
