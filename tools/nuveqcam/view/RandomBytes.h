// Random bytes for secrets.
#pragma once

#include <cstdint>
#include <span>

namespace nuveqcam {

// Fills the bytes from the OS's cryptographic random source. Throws Failure (kUnexpected).
void FillWithRandom(std::span<std::uint8_t> bytes);

}  // namespace nuveqcam
