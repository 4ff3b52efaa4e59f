#include "PacketWriter.h"

#include "Mp4Writer.h"

namespace {

// Packets are a stream in Annex B form as they are.
class RawWriter : public PacketWriter {
 public:
  explicit RawWriter(OutputFile& file) : m_file(file) {}

  void Write(const Packet& packet, FrameClock::Seconds /*time*/) override { m_file.Write(packet.bytes); }
  void Finish() override { m_file.Close(); }

 private:
  OutputFile& m_file;
};

}  // namespace

std::unique_ptr<PacketWriter> MakePacketWriter(OutputKind kind, OutputFile& file, std::uint32_t fps) {
  if (kind == OutputKind::kMp4) {
    return std::make_unique<Mp4Writer>(file, fps);
  }
  return std::make_unique<RawWriter>(file);
}
