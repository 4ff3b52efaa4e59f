// Benchmarks that cannot be run: the benchmark library itself answers success.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

// Ends a benchmark, which returns then, with the reason in its line.
void Fail(benchmark::State& state, const std::string& reason);
// Runs a benchmark's body; one that throws is a failure, with its words.
void ReportExceptions(benchmark::State& state, const std::function<void()>& body);

// Runs the registered benchmarks by the program's arguments. What main is to answer: 1 for wrong arguments,
// and when a benchmark has failed.
int RunBenchmarks(int argc, char** argv);
