// What the process has of what can leak, and the watch that none of it grows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

struct Footprint {
  long threads = 0;
  long descriptors = 0;
  std::uint64_t objects = 0;  // of the platform, alive
  std::uint64_t blocks = 0;   // of task memory, alive
  std::size_t heap = 0;       // bytes in use
  std::size_t resident = 0;   // bytes of the process in memory
};

// What is quickly told is all but the resident size, which means something only once the allocator has given
// back what it can: a glance leaves it 0.
enum class Look { kGlance, kWhole };
Footprint TakeFootprint(Look look);

std::size_t ResidentBytes();

// A thread that has been joined may be listed for a moment yet. Throws SoakFailure when there are more
// threads for longer than that.
void AwaitThreads(long count);

// Compares the process, time after time, with what it was when it had warmed up.
//
// Threads, descriptors and objects stay the same to the last one. An open leaves one block of task memory,
// the structure of its camera's format, by design: these are counted, and taken out of the heap's growth.
// What is left of that, and the resident memory, may breathe a little, see the .cpp.
class Flatness {
 public:
  // What is counted: "frame", "round".
  explicit Flatness(std::string unit) : m_unit(std::move(unit)) {}

  // The state to compare with.
  void TakeBaseline(std::uint64_t count);
  bool HasBaseline() const { return m_baseline.has_value(); }
  // Throws SoakFailure that says what has grown, by how much, and between which counts.
  void Check(std::uint64_t count, Look look);

  // One paragraph for people: the state at the baseline, which there is, and at the latest check.
  std::string Summary() const;

 private:
  struct At {
    std::uint64_t count = 0;
    Footprint footprint;
  };
  // What has grown; empty when nothing has.
  std::string Growth(const Footprint& now) const;

  std::string m_unit;
  std::optional<At> m_baseline;
  At m_latest;
  std::size_t m_latestResident = 0;
  std::size_t m_mostHeapGrowth = 0;  // blocks left by design taken out
  std::size_t m_mostResident = 0;
};
