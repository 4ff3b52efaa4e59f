// Queries on H.264 access units in Annex B format.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace nuveqcam {

using ByteView = std::span<const std::uint8_t>;

// True if the access unit has an IDR slice.
bool IsKeyFrame(ByteView accessUnit);

// The access unit's SPS and PPS with start codes; empty if it has none.
std::vector<std::uint8_t> ParameterSets(ByteView accessUnit);

}  // namespace nuveqcam
