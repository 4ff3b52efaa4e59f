// Runs the library for long and watches that nothing grows, gets lost or hangs.
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "Footprint.h"
#include "Heap.h"
#include "Phases.h"
#include "SoakFailure.h"
#include "SoakOptions.h"

namespace {

constexpr int kWrongUsage = 2;

void Show(const std::string& summary) {
  std::fputs(summary.c_str(), stdout);
  std::fflush(stdout);
}

void Run(const Options& options) {
  Progress progress;
  // This one, the progress's, and what a sanitizer may have.
  const long threads = TakeFootprint(Look::kGlance).threads;
  std::string summary;
  if (options.frames > 0) {
    summary += RunFrames(options.frames, options.size, progress);
  }
  if (options.rounds > 0) {
    summary += RunRounds(options.rounds, threads, progress);
  }
  devices::SetDeviceProvider(nullptr);
  Show(summary);
}

}  // namespace

int main(int argc, char** argv) try {
  MakeAllocatorTidy(argv);
  const Options options = ReadOptions(argc, argv);
  if (options.wantsHelp) {
    Show(HelpText());
    return EXIT_SUCCESS;
  }
  Run(options);
  Show("soak: ok\n");
  return EXIT_SUCCESS;
} catch (const WrongUsage& wrong) {
  std::fprintf(stderr, "soak: %s\n%s", wrong.what(), HelpText());
  return kWrongUsage;
} catch (const std::exception& failure) {
  std::fprintf(stderr, "soak: FAILED: %s\n", failure.what());
  return EXIT_FAILURE;
}
