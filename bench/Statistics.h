// Statistics of durations.
#pragma once

#include <algorithm>
#include <chrono>
#include <cmath>
#include <numeric>
#include <vector>

namespace bench {

inline double Milliseconds(std::chrono::steady_clock::duration time) {
  return std::chrono::duration<double, std::milli>(time).count();
}

// Nearest-rank percentile. values must not be empty.
inline double Percentile(std::vector<double> values, double percent) {
  std::sort(values.begin(), values.end());
  const double rank = std::ceil(percent / 100.0 * static_cast<double>(values.size()));
  return values[static_cast<std::size_t>(std::max(rank, 1.0)) - 1];
}

inline double Median(const std::vector<double>& values) { return Percentile(values, 50); }

inline double Sum(const std::vector<double>& values) {
  return std::accumulate(values.begin(), values.end(), 0.0);
}

inline double Mean(const std::vector<double>& values) {
  return Sum(values) / static_cast<double>(values.size());
}

}  // namespace bench
