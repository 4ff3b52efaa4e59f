// A recording that is the stream as it is.
#pragma once

#include "recording/PacketWriter.h"

// Packets are a stream in Annex B form already.
class RawWriter : public PacketWriter {
 public:
  explicit RawWriter(OutputFile& file) : m_file(file) {}

  void Write(const Packet& packet, FrameClock::Seconds /*time*/) override { m_file.Write(packet.bytes); }
  void Finish() override { m_file.Close(); }

 private:
  OutputFile& m_file;
};
