#include "recording/PacketWriter.h"

#include "cli/Failure.h"

namespace nuveqcam {

std::unique_ptr<PacketWriter> MakePacketWriter(OutputKind kind, OutputFile& file, std::uint32_t /*fps*/) {
  if (kind != OutputKind::kRawH264) {
    throw Failure(ExitCode::kUsage, "this build records .h264 files only; choose such a file with -o");
  }
  return std::make_unique<RawWriter>(file);
}

}  // namespace nuveqcam
