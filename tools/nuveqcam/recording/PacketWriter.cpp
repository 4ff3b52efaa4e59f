#include "recording/PacketWriter.h"

#include "recording/Mp4Writer.h"

namespace nuveqcam {

std::unique_ptr<PacketWriter> MakePacketWriter(OutputKind kind, OutputFile& file, std::uint32_t fps) {
  if (kind == OutputKind::kMp4) {
    return std::make_unique<Mp4Writer>(file, fps);
  }
  return std::make_unique<RawWriter>(file);
}

}  // namespace nuveqcam
