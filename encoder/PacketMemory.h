// Memory pool for encoded packets: the block of a destroyed packet is reused for a later one.
#pragma once

#include <cstdint>

#include "MultiMediaEncoder.h"

namespace encoder {

// Provides a capacity of at least bytes and discards the content of the packet. Returns false if memory is
// exhausted; the packet is then empty. Callable from any thread.
bool Reserve(AVEncodePacket& packet, std::uint32_t bytes);

// Empties the packet and returns its block to the pool. Callable from any thread.
void Recycle(AVEncodePacket& packet);

}  // namespace encoder
