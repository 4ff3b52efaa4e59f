// Queries on H.264 access units in Annex B format.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace nuveqcam {

// Values of nal_unit_type.
inline constexpr unsigned kNonIdrSlice = 1;
inline constexpr unsigned kIdrSlice = 5;
inline constexpr unsigned kSps = 7;
inline constexpr unsigned kPps = 8;

using ByteView = std::span<const std::uint8_t>;

struct NalUnit {
  unsigned type = 0;  // nal_unit_type
  ByteView bytes;     // from the header byte on, in the memory of the access unit
};
// All NAL units in order. The leading zero of a four-byte start code ends the previous unit.
std::vector<NalUnit> SplitNalUnits(ByteView accessUnit);

// True if the access unit has an IDR slice.
bool IsKeyFrame(ByteView accessUnit);

// The access unit's SPS and PPS with start codes; empty if it has none.
std::vector<std::uint8_t> ParameterSets(ByteView accessUnit);

}  // namespace nuveqcam
