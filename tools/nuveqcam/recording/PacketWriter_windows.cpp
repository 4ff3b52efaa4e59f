#include "recording/PacketWriter.h"

#include "cli/Failure.h"
#include "recording/RawWriter.h"

std::unique_ptr<PacketWriter> MakePacketWriter(OutputKind kind, OutputFile& file, std::uint32_t /*fps*/) {
  if (kind != OutputKind::kRawH264) {
    throw Failure(ExitCode::kUsage, "this build records to .h264 alone; choose such a file with -o");
  }
  return std::make_unique<RawWriter>(file);
}
