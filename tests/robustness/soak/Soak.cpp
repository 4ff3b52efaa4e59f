// Soak test: runs the library for a long time and detects leaks, lost frames and hangs.
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "Footprint.h"
#include "Heap.h"
#include "Phases.h"
#include "SoakFailure.h"
#include "SoakOptions.h"

namespace soak {
namespace {

constexpr int kExitUsage = 2;

void Print(const std::string& summary) {
  std::fputs(summary.c_str(), stdout);
  std::fflush(stdout);
}

void Run(const Options& options) {
  Progress progress;
  // The main thread, that of Progress, and possibly one of a sanitizer.
  const long threads = MeasureFootprint(Detail::kQuick).threads;
  std::string summary;
  if (options.frames > 0) {
    summary += RunFrames(options.frames, options.size, progress);
  }
  if (options.rounds > 0) {
    summary += RunRounds(options.rounds, threads, progress);
  }
  devices::SetDeviceProvider(nullptr);
  Print(summary);
}

int Main(int argc, char** argv) try {
  ConfigureAllocator(argv);
  const Options options = ReadOptions(argc, argv);
  if (options.wantsHelp) {
    Print(HelpText());
    return EXIT_SUCCESS;
  }
  Run(options);
  Print("soak: ok\n");
  return EXIT_SUCCESS;
} catch (const UsageError& error) {
  std::fprintf(stderr, "soak: %s\n%s", error.what(), HelpText());
  return kExitUsage;
} catch (const std::exception& failure) {
  std::fprintf(stderr, "soak: FAILED: %s\n", failure.what());
  return EXIT_FAILURE;
}

}  // namespace
}  // namespace soak

int main(int argc, char** argv) { return soak::Main(argc, argv); }
