// The benchmarks of pipeline_bench.
#pragma once

#include <string>
#include <vector>

#include "Clip.h"

namespace bench {

struct PictureKind {
  int width;
  int height;
  ColorSpace layout;

  std::string Name() const;
};

// Common camera sizes in ascending order, each as YUY2 and as ARGB32.
std::vector<PictureKind> PictureKinds();

// Returns a clip of such pictures, with fewer frames for large sizes. The latest clip is cached.
const Clip& ClipOf(const PictureKind& kind);

// Whole sessions: latency at a frame rate, throughput, open and close.
void RegisterSessionBenchmarks();
// The frame queue and the copy into the frame pool.
void RegisterPartBenchmarks();

}  // namespace bench
