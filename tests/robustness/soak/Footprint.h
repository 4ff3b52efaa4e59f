// Resources of the process that can leak, and a monitor that detects growth.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace soak {

struct Footprint {
  long threads = 0;
  long descriptors = 0;
  std::uint64_t objects = 0;  // live COM objects
  std::uint64_t blocks = 0;   // live blocks of task memory
  std::size_t heap = 0;       // allocated bytes
  std::size_t resident = 0;   // resident set size in bytes
};

// kQuick leaves the resident size 0: measuring it requires trimming the heap.
enum class Detail { kQuick, kFull };
Footprint MeasureFootprint(Detail detail);

// Waits until the process has count threads: a joined thread may stay listed for a moment. Throws SoakFailure
// on timeout.
void WaitForThreadCount(long count);

// Compares the process with a baseline taken after the warm-up.
//
// Threads, descriptors and objects must not grow. Each open leaks one block of task memory, the format
// structure of the camera, by design; these blocks are excluded from the growth of the heap. The heap and the
// resident size have small tolerances, see the .cpp.
class FootprintMonitor {
 public:
  // unit: "frame" or "round".
  explicit FootprintMonitor(std::string unit) : m_unit(std::move(unit)) {}

  // Takes the baseline.
  void TakeBaseline(std::uint64_t count);
  bool HasBaseline() const { return m_baseline.has_value(); }
  // Throws SoakFailure that describes the growth, if any. Requires a baseline.
  void Check(std::uint64_t count, Detail detail);

  // Human-readable summary of the baseline and the latest check. Requires a baseline.
  std::string Summary() const;

 private:
  struct Sample {
    std::uint64_t count = 0;
    Footprint footprint;
  };
  // Describes the growth; empty if there is none.
  std::string Growth(const Footprint& now) const;

  std::string m_unit;
  std::optional<Sample> m_baseline;
  Sample m_latest;
  std::size_t m_latestResident = 0;
  std::size_t m_maxHeapGrowth = 0;  // without blocks leaked by design
  std::size_t m_maxResident = 0;
};

}  // namespace soak
