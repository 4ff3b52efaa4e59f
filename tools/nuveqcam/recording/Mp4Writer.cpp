#include "recording/Mp4Writer.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <utility>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

#include "cli/Failure.h"

namespace nuveqcam {
namespace {

constexpr int kBufferSize = 64 * 1024;

}  // namespace

Mp4Writer::Mp4Writer(OutputFile& file, std::uint32_t fps)
    : m_file(file), m_frameTime(kTicksPerSecond / std::max<std::uint32_t>(fps, 1)) {
  if (!file.CanSeek()) {
    throw Failure(ExitCode::kCannotWrite,
                  "cannot write " + file.Name() +
                      ": an MP4 file must be seekable; choose a regular file, or .h264, "
                      "with -o");
  }
}

void Mp4Writer::Write(const Packet& packet, FrameClock::Seconds time) {
  if (m_track == nullptr) {
    Begin(packet);
  }
  FillPacket(*m_packet, *m_track, packet, ToTicks(time), m_frameTime);
  Check(av_write_frame(m_container.get(), m_packet.get()), "write the MP4 file");
}

void Mp4Writer::Begin(const Packet& first) {
  m_container = MakeMp4Container();
  AVStream* const track = AddH264Track(*m_container, first);
  auto* const buffer = static_cast<unsigned char*>(av_malloc(kBufferSize));
  m_io.reset(buffer == nullptr ? nullptr
                               : avio_alloc_context(buffer, kBufferSize, 1, this, nullptr, WriteBytes, Seek));
  if (m_io == nullptr) {
    av_free(buffer);
    throw std::bad_alloc();
  }
  m_container->pb = m_io.get();
  // Reports a full disk at the packet that does not fit.
  m_container->flush_packets = 1;
  m_packet = MakeLibavPtr(av_packet_alloc());
  Check(avformat_write_header(m_container.get(), nullptr), "begin the MP4 file");
  m_track = track;
}

void Mp4Writer::Finish() {
  if (m_track != nullptr) {
    Check(av_write_trailer(m_container.get()), "complete the MP4 file");
  }
  m_file.Close();
}

void Mp4Writer::Check(int result, const char* action) {
  if (m_writeFailure != nullptr) {
    std::rethrow_exception(std::exchange(m_writeFailure, nullptr));
  }
  RequireLibav(result, action);
}

// Keeps exceptions from propagating through libav.
template <typename Byte>
int Mp4Writer::WriteBytes(void* self, Byte* bytes, int size) {
  auto& writer = *static_cast<Mp4Writer*>(self);
  if (writer.m_writeFailure != nullptr) {
    return AVERROR(EIO);
  }
  try {
    writer.m_file.Write({bytes, static_cast<std::size_t>(size)});
    return size;
  } catch (...) {
    writer.m_writeFailure = std::current_exception();
    return AVERROR(EIO);
  }
}

std::int64_t Mp4Writer::Seek(void* self, std::int64_t offset, int whence) {
  if (whence != SEEK_SET && whence != SEEK_CUR && whence != SEEK_END) {
    return AVERROR(ENOSYS);
  }
  const std::int64_t position = static_cast<Mp4Writer*>(self)->m_file.Seek(offset, whence);
  return position < 0 ? AVERROR(EIO) : position;
}

}  // namespace nuveqcam
