#include "encoder/PacketMemory.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace encoder {
namespace {

struct Block {
  void* memory = nullptr;
  std::uint32_t capacity = 0;
};

// A few blocks, for as many packets as are alive at a time; more come and go.
struct KeptBlocks {
  std::mutex mutex;
  std::array<Block, 4> blocks;
  bool closed = false;
};

// Never destroyed: a process that exits with an encoder at work still encodes while static objects go.
union NoDestructor {
  NoDestructor() : kept() {}
  NoDestructor(const NoDestructor&) = delete;
  NoDestructor& operator=(const NoDestructor&) = delete;
  ~NoDestructor() {}  // NOLINT(modernize-use-equals-default): a defaulted one would be deleted
  KeptBlocks kept;
};
NoDestructor immortal;
KeptBlocks& kept = immortal.kept;

// Frees what is kept when the library goes, and sees to it that nothing is kept any more.
class PoolCleanup {
 public:
  PoolCleanup() = default;
  PoolCleanup(const PoolCleanup&) = delete;
  PoolCleanup& operator=(const PoolCleanup&) = delete;
  ~PoolCleanup() {
    // A thread that was killed at the end of the process may have held the lock.
    const std::unique_lock lock(kept.mutex, std::try_to_lock);
    if (!lock.owns_lock()) {
      return;
    }
    kept.closed = true;
    for (Block& block : kept.blocks) {
      std::free(std::exchange(block, Block()).memory);
    }
  }
};
const PoolCleanup endOfKeeping;

// A kept block of at least that many bytes; an empty one when there is none.
Block Take(std::uint32_t bytes) {
  const std::lock_guard lock(kept.mutex);
  const auto found = std::find_if(kept.blocks.begin(), kept.blocks.end(), [&](const Block& block) {
    return block.memory != nullptr && block.capacity >= bytes;
  });
  return found == kept.blocks.end() ? Block() : std::exchange(*found, Block());
}

// Keeps the block in place of the smallest one, which it answers for the caller to free.
Block Keep(Block block) {
  const std::lock_guard lock(kept.mutex);
  const auto smallest =
      std::min_element(kept.blocks.begin(), kept.blocks.end(),
                       [](const Block& a, const Block& b) { return a.capacity < b.capacity; });
  return !kept.closed && smallest->capacity < block.capacity ? std::exchange(*smallest, block) : block;
}

}  // namespace

bool Reserve(AVEncodePacket& packet, std::uint32_t bytes) {
  packet.length = 0;
  if (packet.capacity >= bytes && packet.memory != nullptr) {
    return true;
  }
  Recycle(packet);
  Block block = Take(bytes);
  if (block.memory == nullptr) {
    // Powers of two, so that packets that differ a little fit each other's blocks.
    constexpr std::uint32_t kSmallest = 4096;
    constexpr std::uint32_t kMax = std::uint32_t{1} << 31;
    if (bytes > kMax) {
      return false;
    }
    block.capacity = std::bit_ceil(std::max(bytes, kSmallest));
    block.memory = std::malloc(block.capacity);
    if (block.memory == nullptr) {
      return false;
    }
  }
  packet.memory = block.memory;
  packet.data = static_cast<std::uint8_t*>(block.memory);
  packet.capacity = block.capacity;
  return true;
}

void Recycle(AVEncodePacket& packet) {
  if (packet.memory != nullptr) {
    std::free(Keep({packet.memory, packet.capacity}).memory);
  }
  packet.memory = nullptr;
  packet.data = nullptr;
  packet.length = 0;
  packet.capacity = 0;
}

}  // namespace encoder

AVEncodePacket::AVEncodePacket() = default;

AVEncodePacket::~AVEncodePacket() { encoder::Recycle(*this); }
