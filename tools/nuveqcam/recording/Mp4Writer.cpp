#include "recording/Mp4Writer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <utility>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
#include <libavutil/mathematics.h>
#include <libavutil/mem.h>
}

#include "cli/Failure.h"
#include "picture/Picture.h"
#include "recording/AnnexB.h"

namespace nuveqcam {
namespace {

constexpr int kTicksPerSecond = 90000;
constexpr int kBufferSize = 64 * 1024;

// Throws std::bad_alloc for null, libav's out-of-memory result.
template <typename T>
LibavPtr<T> MakeLibavPtr(T* object) {
  if (object == nullptr) {
    throw std::bad_alloc();
  }
  return LibavPtr<T>(object);
}

// Throws Failure (kUnexpected) if the result is an error: "cannot <action>: <libav's message>; ...".
void RequireLibav(int result, const char* action) {
  if (result >= 0) {
    return;
  }
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(result, text.data(), text.size());
  throw Failure(ExitCode::kUnexpected, std::string("cannot ") + action + ": " + text.data() +
                                           "; record to an .h264 file instead, or report this");
}

// Reads the size from the stream. It can differ from the requested one: the encoder uses the even size below
// an odd size. Uses the decoder of OpenH264, because FFmpeg for Windows is built with only the muxer.
void ReadStreamSize(const Packet& packet, AVCodecParameters& parameters) {
  PictureDecoder decoder;
  if (!decoder.Decode(packet)) {
    throw Failure(
        ExitCode::kCannotWrite,
        "cannot begin the MP4 file: the picture size cannot be read from the stream; try .h264 with -o");
  }
  parameters.width = static_cast<int>(decoder.Width());
  parameters.height = static_cast<int>(decoder.Height());
}

void SetExtradata(const std::vector<std::uint8_t>& bytes, AVCodecParameters& parameters) {
  parameters.extradata = static_cast<std::uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (parameters.extradata == nullptr) {
    throw std::bad_alloc();
  }
  std::memcpy(parameters.extradata, bytes.data(), bytes.size());
  parameters.extradata_size = static_cast<int>(bytes.size());
}

}  // namespace

Mp4Writer::Mp4Writer(OutputFile& file, std::uint32_t fps)
    : m_file(file), m_frameTime(kTicksPerSecond / std::max<std::uint32_t>(fps, 1)) {
  if (!file.CanSeek()) {
    throw Failure(ExitCode::kCannotWrite,
                  "cannot write " + file.Name() +
                      ": an MP4 file must be seekable; choose a regular file, or .h264, "
                      "with -o");
  }
  // By default libav logs to standard error. Its error codes are reported instead.
  av_log_set_level(AV_LOG_QUIET);
}

void Mp4Writer::Write(const Packet& packet, FrameClock::Seconds time) {
  if (m_track == nullptr) {
    Begin(packet);
  }
  // av_write_frame does not keep the data: the packet has no buffer reference and is written at once.
  m_packet->data =
      const_cast<std::uint8_t*>(packet.bytes.data());  // NOLINT(cppcoreguidelines-pro-type-const-cast)
  m_packet->size = static_cast<int>(packet.bytes.size());
  m_packet->stream_index = m_track->index;
  m_packet->flags = IsKeyFrame(packet.bytes) ? AV_PKT_FLAG_KEY : 0;
  const AVRational ticks{1, kTicksPerSecond};
  m_packet->pts = av_rescale_q(std::llround(time.count() * kTicksPerSecond), ticks, m_track->time_base);
  m_packet->dts = m_packet->pts;
  m_packet->duration = av_rescale_q(m_frameTime, ticks, m_track->time_base);
  Check(av_write_frame(m_container.get(), m_packet.get()), "write the MP4 file");
}

void Mp4Writer::Begin(const Packet& first) {
  const std::vector<std::uint8_t> sets = ParameterSets(first.bytes);
  if (sets.empty() || !IsKeyFrame(first.bytes)) {
    throw Failure(
        ExitCode::kUnexpected,
        "the stream does not begin with a key frame; record to an .h264 file instead, or report this");
  }
  auto* const buffer = static_cast<unsigned char*>(av_malloc(kBufferSize));
  m_io.reset(buffer == nullptr ? nullptr
                               : avio_alloc_context(buffer, kBufferSize, 1, this, nullptr, WriteBytes, Seek));
  if (m_io == nullptr) {
    av_free(buffer);
    throw std::bad_alloc();
  }
  AVFormatContext* container = nullptr;
  avformat_alloc_output_context2(&container, nullptr, "mp4", nullptr);
  m_container = MakeLibavPtr(container);
  m_container->pb = m_io.get();
  // Reports a full disk at the packet that does not fit.
  m_container->flush_packets = 1;
  m_packet = MakeLibavPtr(av_packet_alloc());
  AVStream* const track = avformat_new_stream(m_container.get(), nullptr);
  if (track == nullptr) {
    throw std::bad_alloc();
  }
  track->time_base = {1, kTicksPerSecond};
  track->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
  track->codecpar->codec_id = AV_CODEC_ID_H264;
  track->codecpar->format = AV_PIX_FMT_YUV420P;
  ReadStreamSize(first, *track->codecpar);
  // Extradata in Annex B format makes the muxer convert the packets, too.
  SetExtradata(sets, *track->codecpar);
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
