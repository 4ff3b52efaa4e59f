// The benchmarks of pipeline_bench, by what they measure.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

#include "Clip.h"

struct PictureKind {
  int width;
  int height;
  ColorSpace layout;

  std::string Name() const;
};

// Sizes that cameras have, smallest first, each as YUY2 and as ARGB32.
std::vector<PictureKind> PictureKinds();

// The clip of such frames; the latest is kept. Fewer frames where they are large.
const Clip& ClipOf(const PictureKind& kind);

// Runs a benchmark's body; one that throws is a failure, with its words.
void Guarded(benchmark::State& state, const std::function<void()>& body);
// True once one has failed: the benchmark library itself answers success.
bool HasAnyFailed();

// Whole sessions: latency at a camera's pace, throughput, open and close.
void RegisterSessionBenchmarks();
// The frame queue and the copy into it, on their own.
void RegisterPartBenchmarks();
