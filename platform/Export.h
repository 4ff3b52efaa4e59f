// Marks what a shared library shows. On Windows the programs that use such code have it built in.
#pragma once

#ifdef _WIN32
#define NUVEQ_PLATFORM_EXPORT
#else
#define NUVEQ_PLATFORM_EXPORT __attribute__((visibility("default")))
#endif
