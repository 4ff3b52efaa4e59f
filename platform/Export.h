// Marks a function or class that a platform library exports. Empty on Windows, where programs link this code
// statically.
#pragma once

#ifdef _WIN32
#define NUVEQ_PLATFORM_EXPORT
#else
#define NUVEQ_PLATFORM_EXPORT __attribute__((visibility("default")))
#endif
