// How the system refers to an open file.
#pragma once

#ifdef _WIN32
#include <cstdint>

using FileHandle = void*;
// INVALID_HANDLE_VALUE, without the system's headers.
inline void* const kNoFile = reinterpret_cast<void*>(std::intptr_t{-1});  // NOLINT(performance-no-int-to-ptr)
#else
using FileHandle = int;
inline constexpr FileHandle kNoFile = -1;
#endif
