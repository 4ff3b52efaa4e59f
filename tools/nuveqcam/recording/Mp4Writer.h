// An MP4 file with one H.264 track.
#pragma once

#include <cstdint>
#include <exception>
#include <memory>

#include "recording/Libav.h"
#include "recording/PacketWriter.h"

class Mp4Writer : public PacketWriter {
 public:
  // Throws Failure (kCannotWrite) when the output cannot be rewound: an MP4 file's index is completed last.
  Mp4Writer(OutputFile& file, std::uint32_t fps);

  void Write(const Packet& packet, FrameClock::Seconds time) override;
  void Finish() override;

 private:
  void Begin(const Packet& first);
  void Check(int result, const char* what);
  static int WriteBytes(void* self, std::uint8_t* bytes, int size);
  static std::int64_t Seek(void* self, std::int64_t offset, int whence);

  OutputFile& m_file;
  std::int64_t m_frameTime;
  Libav<AVIOContext> m_io;
  Libav<AVFormatContext> m_container;
  Libav<AVPacket> m_packet;
  AVStream* m_track = nullptr;  // the container's
  std::exception_ptr m_writeFailure;
};
