// soak FRAMES ROUNDS: runs the library on a simulated PC whose camera delivers frames as fast as they are
// consumed. One session of FRAMES frames, then ROUNDS short sessions with misuse by the host and camera
// failures. Fails on a lost frame, a hang, or growing memory, threads or file descriptors.
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "Footprint.h"
#include "Heap.h"
#include "Phases.h"
#include "SoakFailure.h"
#include "support/ProcessCounts_linux.h"

namespace soak {
namespace {

int Main(int argc, char** argv) try {
  ConfigureAllocator(argv);
  if (argc != 3) {
    std::fputs("usage: soak FRAMES ROUNDS\n", stderr);
    return EXIT_FAILURE;
  }
  if (!support::StartSanitizerThread()) {
    throw SoakFailure("a thread does not end");
  }
  const long threads = MeasureFootprint(Detail::kQuick).threads;
  std::string summary;
  if (const auto frames = std::stoull(argv[1]); frames > 0) {
    summary += RunFrames(frames);
  }
  if (const auto rounds = std::stoull(argv[2]); rounds > 0) {
    summary += RunRounds(rounds, threads);
  }
  devices::SetDeviceProvider(nullptr);
  std::printf("%ssoak: ok\n", summary.c_str());
  return EXIT_SUCCESS;
} catch (const std::exception& failure) {
  std::fprintf(stderr, "soak: FAILED: %s\n", failure.what());
  return EXIT_FAILURE;
}

}  // namespace
}  // namespace soak

int main(int argc, char** argv) { return soak::Main(argc, argv); }
