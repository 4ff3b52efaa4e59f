#include "Footprint.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "DirectShow.h"
#include "Heap.h"
#include "SoakFailure.h"
#include "com/Com.h"
#include "devices/DeviceProvider.h"
#include "graph/StreamStats.h"
#include "support/ProcessCounts_linux.h"

namespace soak {
namespace {

// Packet buffers of the library and the encoder may still grow after the warm-up.
constexpr std::size_t kHeapSlack = std::size_t{32} << 10;
// A block is larger than requested if the rest of the free chunk would be too small to split off.
constexpr std::size_t kBlockSlack = 16;
// Partially used pages and thread stacks. A leak of the largest frame is twice as large.
constexpr std::size_t kResidentSlack = std::size_t{4} << 20;

// Minimal heap cost of the block of task memory that an open leaks.
std::size_t MeasureBlockCost() {
  using Block = std::array<std::byte, sizeof(AM_MEDIA_TYPE)>;
  std::array<std::unique_ptr<Block>, 256> blocks;
  std::size_t minimum = 2 * sizeof(Block);
  for (std::unique_ptr<Block>& block : blocks) {
    const std::size_t before = HeapInUse();
    block = std::make_unique<Block>();
    minimum = std::min(minimum, HeapInUse() - before);
  }
  return minimum;
}

std::size_t BlockCost() {
  static const std::size_t cost = MeasureBlockCost();
  return cost;
}

template <typename Number>
std::string DescribeGrowth(const char* resource, Number from, Number to) {
  return to <= from ? ""
                    : std::string(resource) + " grew by " + std::to_string(to - from) + " from " +
                          std::to_string(from) + " to " + std::to_string(to) + "; ";
}

// Growth of the heap without the blocks that are leaked by design.
std::size_t HeapGrowth(const Footprint& from, const Footprint& to) {
  const std::size_t expected = from.heap + (to.blocks - std::min(from.blocks, to.blocks)) * BlockCost();
  return to.heap - std::min(to.heap, expected);
}

std::size_t ResidentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  statm >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::string InKib(std::size_t bytes) { return std::to_string((bytes + 512) / 1024) + " KiB"; }

}  // namespace

Footprint MeasureFootprint(Detail detail) {
  Footprint footprint;
  footprint.heap = HeapInUse();
  footprint.threads = support::ThreadCount();
  footprint.descriptors = support::DescriptorCount();
  footprint.objects = com::LiveObjects();
  footprint.blocks = com::LiveTaskBlocks();
  if (detail == Detail::kFull) {
    TrimHeap();
    footprint.resident = ResidentBytes();
  }
  return footprint;
}

void WaitForThreadCount(long count) {
  constexpr std::chrono::seconds kTimeout{60};
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  long threads = support::ThreadCount();
  while (threads != count) {
    if (std::chrono::steady_clock::now() > deadline) {
      throw SoakFailure("there are " + std::to_string(threads) + " threads instead of " +
                        std::to_string(count));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    threads = support::ThreadCount();
  }
}

void FootprintMonitor::TakeBaseline(std::uint64_t count) {
  BlockCost();
  m_latest = {count, MeasureFootprint(Detail::kFull)};
  m_baseline = m_latest;
  m_latestResident = m_latest.footprint.resident;
  m_maxResident = m_latestResident;
}

void FootprintMonitor::Check(std::uint64_t count, Detail detail) {
  const Footprint now = MeasureFootprint(detail);
  if (const std::string growth = Growth(now); !growth.empty()) {
    throw SoakFailure(growth + "detected at " + m_unit + " " + std::to_string(count) +
                      ", previous check at " + m_unit + " " + std::to_string(m_latest.count) +
                      ", baseline at " + m_unit + " " + std::to_string(m_baseline->count));
  }
  m_maxHeapGrowth = std::max(m_maxHeapGrowth, HeapGrowth(m_baseline->footprint, now));
  if (detail == Detail::kFull) {
    m_latestResident = now.resident;
    m_maxResident = std::max(m_maxResident, now.resident);
  }
  m_latest = {count, now};
}

std::string FootprintMonitor::Growth(const Footprint& now) const {
  const Footprint& then = m_baseline->footprint;
  std::string growth = DescribeGrowth("threads", then.threads, now.threads) +
                       DescribeGrowth("descriptors", then.descriptors, now.descriptors) +
                       DescribeGrowth("COM objects", then.objects, now.objects);
  const std::uint64_t blocks = now.blocks - std::min(then.blocks, now.blocks);
  if (const std::size_t more = HeapGrowth(then, now); more > kHeapSlack + blocks * kBlockSlack) {
    growth += DescribeGrowth("heap bytes, without those leaked by design,", then.heap, then.heap + more);
  }
  if (!AllocatorRetainsFreedMemory() &&
      now.resident > then.resident + blocks * (BlockCost() + kBlockSlack) + kResidentSlack) {
    growth += DescribeGrowth("resident bytes", then.resident, now.resident);
  }
  return growth;
}

std::string FootprintMonitor::Summary() const {
  const Footprint& from = m_baseline->footprint;
  const Footprint& to = m_latest.footprint;
  const auto line = [](const char* label, const std::string& a, const std::string& b) {
    return std::string("  ") + label + a + " -> " + b;
  };
  return "  from " + m_unit + " " + std::to_string(m_baseline->count) + " to " + m_unit + " " +
         std::to_string(m_latest.count) + ":\n" +
         line("threads     ", std::to_string(from.threads), std::to_string(to.threads)) + "\n" +
         line("descriptors ", std::to_string(from.descriptors), std::to_string(to.descriptors)) + "\n" +
         line("objects     ", std::to_string(from.objects), std::to_string(to.objects)) + "\n" +
         line("heap        ", std::to_string(from.heap), std::to_string(to.heap)) + " bytes, including " +
         std::to_string(to.blocks - from.blocks) + " blocks of " + std::to_string(BlockCost()) +
         " leaked by design; peak growth " + std::to_string(m_maxHeapGrowth) + " bytes beyond these\n" +
         line("resident    ", InKib(from.resident), InKib(m_latestResident)) + ", peak " +
         InKib(m_maxResident) + "\n";
}

}  // namespace soak
