// What the tool needs to know about an H.264 access unit in Annex B form (start codes between its units).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

using ByteView = std::span<const std::uint8_t>;

// True when decoding can begin with it: it has an IDR slice.
bool IsKeyFrame(ByteView accessUnit);

// Its sequence and picture parameter sets, with start codes; empty without them.
std::vector<std::uint8_t> ParameterSets(ByteView accessUnit);
