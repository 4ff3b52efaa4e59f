#include "Failures.h"

#include <exception>

namespace bench {
namespace {

bool& HasAnyFailed() {
  static bool hasFailed = false;
  return hasFailed;
}

}  // namespace

void Fail(benchmark::State& state, const std::string& reason) {
  HasAnyFailed() = true;
  state.SkipWithError(reason.c_str());
}

void ReportExceptions(benchmark::State& state, const std::function<void()>& body) {
  try {
    body();
  } catch (const std::exception& error) {
    Fail(state, error.what());
  }
}

int RunBenchmarks(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return HasAnyFailed() ? 1 : 0;
}

}  // namespace bench
