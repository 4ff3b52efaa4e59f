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

namespace {

// What the library and the encoder keep for the next packet may still grow after the warm-up.
constexpr std::size_t kHeapSlack = std::size_t{32} << 10;
// A block takes that much more where what would be left of a free piece is too small to be one.
constexpr std::size_t kBlockSlack = 16;
// Pages of which only a part is in use, and the stacks of threads. One greatest frame is twice that.
constexpr std::size_t kResidentSlack = std::size_t{4} << 20;

long EntriesOf(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

long Threads() { return EntriesOf("/proc/self/task"); }

// What one block of task memory as an open leaves it costs the heap at least.
std::size_t MeasureBlock() {
  using Block = std::array<std::byte, sizeof(AM_MEDIA_TYPE)>;
  std::array<std::unique_ptr<Block>, 256> blocks;
  std::size_t least = 2 * sizeof(Block);
  for (std::unique_ptr<Block>& block : blocks) {
    const std::size_t before = HeapInUse();
    block = std::make_unique<Block>();
    least = std::min(least, HeapInUse() - before);
  }
  return least;
}

std::size_t BlockCost() {
  static const std::size_t cost = MeasureBlock();
  return cost;
}

template <typename Number>
std::string Grown(const char* what, Number from, Number to) {
  return to <= from ? ""
                    : std::string(what) + " grew by " + std::to_string(to - from) + " from " +
                          std::to_string(from) + " to " + std::to_string(to) + "; ";
}

// How much the heap has grown beyond the blocks that are left by design.
std::size_t HeapGrowth(const Footprint& from, const Footprint& to) {
  const std::size_t expected = from.heap + (to.blocks - std::min(from.blocks, to.blocks)) * BlockCost();
  return to.heap - std::min(to.heap, expected);
}

std::string InKib(std::size_t bytes) { return std::to_string((bytes + 512) / 1024) + " KiB"; }

}  // namespace

Footprint TakeFootprint(Look look) {
  Footprint taken;
  taken.heap = HeapInUse();
  taken.threads = Threads();
  // Less the one that reads the folder.
  taken.descriptors = EntriesOf("/proc/self/fd") - 1;
  taken.objects = com::LiveObjects();
  taken.blocks = com::LiveTaskBlocks();
  if (look == Look::kWhole) {
    GiveFreePagesBack();
    taken.resident = ResidentBytes();
  }
  return taken;
}

std::size_t ResidentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  statm >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

void AwaitThreads(long count) {
  constexpr std::chrono::seconds kPatience{60};
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  long threads = Threads();
  while (threads != count) {
    if (std::chrono::steady_clock::now() > deadline) {
      throw SoakFailure("there are " + std::to_string(threads) + " threads instead of " +
                        std::to_string(count));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    threads = Threads();
  }
}

void Flatness::TakeBaseline(std::uint64_t count) {
  BlockCost();
  m_latest = {count, TakeFootprint(Look::kWhole)};
  m_baseline = m_latest;
  m_latestResident = m_latest.footprint.resident;
  m_mostResident = m_latestResident;
}

void Flatness::Check(std::uint64_t count, Look look) {
  const Footprint now = TakeFootprint(look);
  if (const std::string growth = Growth(now); !growth.empty()) {
    throw SoakFailure(growth + "seen at " + m_unit + " " + std::to_string(count) + ", looked at last at " +
                      m_unit + " " + std::to_string(m_latest.count) + "; the baseline is of " + m_unit + " " +
                      std::to_string(m_baseline->count));
  }
  m_mostHeapGrowth = std::max(m_mostHeapGrowth, HeapGrowth(m_baseline->footprint, now));
  if (look == Look::kWhole) {
    m_latestResident = now.resident;
    m_mostResident = std::max(m_mostResident, now.resident);
  }
  m_latest = {count, now};
}

std::string Flatness::Growth(const Footprint& now) const {
  const Footprint& then = m_baseline->footprint;
  std::string growth = Grown("threads", then.threads, now.threads) +
                       Grown("descriptors", then.descriptors, now.descriptors) +
                       Grown("objects of the platform", then.objects, now.objects);
  const std::uint64_t blocks = now.blocks - std::min(then.blocks, now.blocks);
  if (const std::size_t more = HeapGrowth(then, now); more > kHeapSlack + blocks * kBlockSlack) {
    growth += Grown("bytes in use on the heap, less those left by design,", then.heap, then.heap + more);
  }
  if (!AllocatorKeepsFreedMemory() &&
      now.resident > then.resident + blocks * (BlockCost() + kBlockSlack) + kResidentSlack) {
    growth += Grown("resident bytes", then.resident, now.resident);
  }
  return growth;
}

std::string Flatness::Summary() const {
  const Footprint& from = m_baseline->footprint;
  const Footprint& to = m_latest.footprint;
  const auto line = [](const char* what, const std::string& a, const std::string& b) {
    return std::string("  ") + what + a + " -> " + b;
  };
  return "  from " + m_unit + " " + std::to_string(m_baseline->count) + " to " + m_unit + " " +
         std::to_string(m_latest.count) + ":\n" +
         line("threads     ", std::to_string(from.threads), std::to_string(to.threads)) + "\n" +
         line("descriptors ", std::to_string(from.descriptors), std::to_string(to.descriptors)) + "\n" +
         line("objects     ", std::to_string(from.objects), std::to_string(to.objects)) + "\n" +
         line("heap        ", std::to_string(from.heap), std::to_string(to.heap)) + " bytes, of which " +
         std::to_string(to.blocks - from.blocks) + " blocks of " + std::to_string(BlockCost()) +
         " left by design; at most " + std::to_string(m_mostHeapGrowth) + " beyond these on the way\n" +
         line("resident    ", InKib(from.resident), InKib(m_latestResident)) + ", at most " +
         InKib(m_mostResident) + "\n";
}
