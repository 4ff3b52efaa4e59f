// Memory of encoded packets. A packet lives for one frame; its block is kept for the next one.
#pragma once

#include <cstdint>

#include "MultiMediaEncoder.h"

namespace encoder {

// Makes room for at least bytes in the packet, whose content is lost. False when there is no memory; the
// packet is then empty. Any thread.
bool Reserve(AVEncodePacket& packet, std::uint32_t bytes);

// Empties the packet and keeps its block for a later one. Any thread.
void Recycle(AVEncodePacket& packet);

}  // namespace encoder
