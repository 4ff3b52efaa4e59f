// Writes packets to a recording.
#pragma once

#include <cstdint>
#include <memory>

#include "recording/FrameClock.h"
#include "recording/OutputFile.h"
#include "recording/OutputKind.h"
#include "recording/PacketQueue.h"

namespace nuveqcam {

class PacketWriter {
 public:
  PacketWriter() = default;
  PacketWriter(const PacketWriter&) = delete;
  PacketWriter& operator=(const PacketWriter&) = delete;
  virtual ~PacketWriter() = default;

  // Writes the next packet with its presentation time, relative to the first packet. Throws Failure, as does
  // Finish; after a failure neither may be called again.
  virtual void Write(const Packet& packet, FrameClock::Seconds time) = 0;
  // Completes the file. Call it once, after the last packet.
  virtual void Finish() = 0;
};

// Writes packets unchanged; together they are a stream in Annex B format.
class RawWriter : public PacketWriter {
 public:
  explicit RawWriter(OutputFile& file) : m_file(file) {}

  void Write(const Packet& packet, FrameClock::Seconds /*time*/) override { m_file.Write(packet.bytes); }
  void Finish() override { m_file.Close(); }

 private:
  OutputFile& m_file;
};

// Creates the writer for a kind of recording at a nominal frame rate. The file must outlive it. Throws
// Failure (kCannotWrite) if an MP4 file cannot be written to the output.
std::unique_ptr<PacketWriter> MakePacketWriter(OutputKind kind, OutputFile& file, std::uint32_t fps);

}  // namespace nuveqcam
