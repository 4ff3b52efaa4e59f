// Exit status for failed benchmarks: the main function of the benchmark library returns success.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

namespace bench {

// Marks the benchmark as failed and prints the reason. The benchmark must return afterwards.
void Fail(benchmark::State& state, const std::string& reason);
// Runs the body of a benchmark. An exception marks it as failed.
void ReportExceptions(benchmark::State& state, const std::function<void()>& body);

// Runs the registered benchmarks. Returns the exit status: 1 for invalid arguments or if a benchmark failed.
int RunBenchmarks(int argc, char** argv);

}  // namespace bench
