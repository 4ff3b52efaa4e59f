// Makes a recording of packets.
#pragma once

#include <cstdint>
#include <memory>

#include "recording/FrameClock.h"
#include "recording/OutputFile.h"
#include "recording/OutputKind.h"
#include "recording/PacketQueue.h"

class PacketWriter {
 public:
  PacketWriter() = default;
  PacketWriter(const PacketWriter&) = delete;
  PacketWriter& operator=(const PacketWriter&) = delete;
  virtual ~PacketWriter() = default;

  // Packets in their order, each with the time at which it is shown, counted from the first. Throws Failure,
  // as Finish does; after a failure neither may be called again.
  virtual void Write(const Packet& packet, FrameClock::Seconds time) = 0;
  // Completes the file. Once, after the last packet.
  virtual void Finish() = 0;
};

// The writer for recordings of that kind, at about that many frames per second. The file outlives it. Throws
// Failure for a kind that this system does not record.
std::unique_ptr<PacketWriter> MakePacketWriter(OutputKind kind, OutputFile& file, std::uint32_t fps);
