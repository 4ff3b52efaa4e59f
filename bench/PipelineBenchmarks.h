// The benchmarks of pipeline_bench, by what they measure.
#pragma once

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

// Whole sessions: latency at a camera's pace, throughput, open and close.
void RegisterSessionBenchmarks();
// The frame queue and the copy into it, on their own.
void RegisterPartBenchmarks();
