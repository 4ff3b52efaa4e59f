// Writes an MP4 file with one H.264 track.
#pragma once

#include <cstdint>
#include <exception>

#include "recording/Mp4Track.h"
#include "recording/PacketWriter.h"

namespace nuveqcam {

class Mp4Writer : public PacketWriter {
 public:
  // Throws Failure (kCannotWrite) if the output is not seekable: the index is written last.
  Mp4Writer(OutputFile& file, std::uint32_t fps);

  void Write(const Packet& packet, FrameClock::Seconds time) override;
  void Finish() override;

 private:
  void Begin(const Packet& first);
  void Check(int result, const char* action);
  // Byte is const from FFmpeg 7 on.
  template <typename Byte>
  static int WriteBytes(void* self, Byte* bytes, int size);
  static std::int64_t Seek(void* self, std::int64_t offset, int whence);

  OutputFile& m_file;
  std::int64_t m_frameTime;
  LibavPtr<AVIOContext> m_io;
  LibavPtr<AVFormatContext> m_container;
  LibavPtr<AVPacket> m_packet;
  AVStream* m_track = nullptr;  // owned by the container
  std::exception_ptr m_writeFailure;
};

}  // namespace nuveqcam
