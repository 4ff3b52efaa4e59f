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

// Free blocks. Four are enough for the packets that are alive at a time; further blocks go back to the heap.
struct Pool {
  std::mutex mutex;
  std::array<Block, 4> blocks;
  bool isClosed = false;
};

// Never destroyed: a process that exits with an open camera still encodes while static objects are destroyed.
union NoDestructor {
  NoDestructor() : pool() {}
  NoDestructor(const NoDestructor&) = delete;
  NoDestructor& operator=(const NoDestructor&) = delete;
  ~NoDestructor() {}  // NOLINT(modernize-use-equals-default): a defaulted one would be deleted
  Pool pool;
};
NoDestructor poolHolder;
Pool& pool = poolHolder.pool;

// Frees the blocks when the library is unloaded, and closes the pool.
class PoolCleanup {
 public:
  PoolCleanup() = default;
  PoolCleanup(const PoolCleanup&) = delete;
  PoolCleanup& operator=(const PoolCleanup&) = delete;
  ~PoolCleanup() {
    // On process exit, a killed thread may still hold the lock.
    const std::unique_lock lock(pool.mutex, std::try_to_lock);
    if (!lock.owns_lock()) {
      return;
    }
    pool.isClosed = true;
    for (Block& block : pool.blocks) {
      std::free(std::exchange(block, Block()).memory);
    }
  }
};
const PoolCleanup poolCleanup;

// Takes a block of at least bytes from the pool; returns an empty one if there is none.
Block Take(std::uint32_t bytes) {
  const std::lock_guard lock(pool.mutex);
  const auto found = std::find_if(pool.blocks.begin(), pool.blocks.end(), [&](const Block& block) {
    return block.memory != nullptr && block.capacity >= bytes;
  });
  return found == pool.blocks.end() ? Block() : std::exchange(*found, Block());
}

// Puts the block into the pool in place of the smallest one. Returns the block that the caller has to free.
Block Put(Block block) {
  const std::lock_guard lock(pool.mutex);
  const auto smallest =
      std::min_element(pool.blocks.begin(), pool.blocks.end(),
                       [](const Block& a, const Block& b) { return a.capacity < b.capacity; });
  return !pool.isClosed && smallest->capacity < block.capacity ? std::exchange(*smallest, block) : block;
}

}  // namespace

bool Reserve(AVEncodePacket& packet, std::uint32_t bytes) {
  packet.length = 0;
  if (packet.capacity >= bytes) {
    return true;
  }
  Recycle(packet);
  Block block = Take(bytes);
  if (block.memory == nullptr) {
    // Powers of two let packets of similar size reuse each other's blocks.
    constexpr std::uint32_t kMinCapacity = 4096;
    constexpr std::uint32_t kMaxCapacity = std::uint32_t{1} << 31;
    if (bytes > kMaxCapacity) {
      return false;
    }
    block.capacity = std::bit_ceil(std::max(bytes, kMinCapacity));
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
    std::free(Put({packet.memory, packet.capacity}).memory);
  }
  packet.memory = nullptr;
  packet.data = nullptr;
  packet.length = 0;
  packet.capacity = 0;
}

}  // namespace encoder

AVEncodePacket::AVEncodePacket() = default;

AVEncodePacket::~AVEncodePacket() { encoder::Recycle(*this); }
