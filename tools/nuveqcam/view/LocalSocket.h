// Socket options that differ between the systems.
#pragma once

#include <cstdint>

namespace nuveqcam {

// Prepares a socket for listening, before it is bound: the port can be used again at once after this program
// has ended, but never by two programs at a time. Throws
// Failure (kUnexpected).
void PrepareListener(std::intptr_t socket);

}  // namespace nuveqcam
