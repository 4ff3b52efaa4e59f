#include "recording/Mp4Track.h"

#include <array>
#include <cmath>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

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

// The advice after failures of MP4 files and streams.
constexpr const char* kAdvice = "'nuveqcam record -o camera.h264' records the plain stream instead";

// The size that belongs to the latest parameter sets. Each client of a stream begins an MP4 stream with the
// same ones, and decoding a key frame takes time. Thread-safe.
class StreamSizeCache {
 public:
  struct StreamSize {
    int width = 0;
    int height = 0;
  };

  std::optional<StreamSize> Find(const std::vector<std::uint8_t>& parameterSets) {
    const std::lock_guard lock(m_mutex);
    return parameterSets == m_parameterSets ? std::optional(m_size) : std::nullopt;
  }
  void Store(const std::vector<std::uint8_t>& parameterSets, const StreamSize& size) {
    const std::lock_guard lock(m_mutex);
    m_parameterSets = parameterSets;
    m_size = size;
  }

 private:
  std::mutex m_mutex;
  std::vector<std::uint8_t> m_parameterSets;  // empty: none
  StreamSize m_size;
};

// Reads the size from the stream. It can differ from the requested one: the encoder uses the even size below
// an odd size. Uses the decoder of OpenH264, because FFmpeg for Windows is built with only the muxer.
StreamSizeCache::StreamSize DecodeSize(const Packet& packet) {
  PictureDecoder decoder;
  if (!decoder.Decode(packet)) {
    throw Failure(
        ExitCode::kCannotWrite,
        std::string("cannot begin the MP4 output: the picture size cannot be read from the stream; ") +
            kAdvice);
  }
  return {static_cast<int>(decoder.Width()), static_cast<int>(decoder.Height())};
}

// The parameter sets are those of the packet.
void ReadStreamSize(const Packet& packet, const std::vector<std::uint8_t>& parameterSets,
                    AVCodecParameters& parameters) {
  static StreamSizeCache cache;
  std::optional<StreamSizeCache::StreamSize> size = cache.Find(parameterSets);
  if (!size) {
    size = DecodeSize(packet);
    cache.Store(parameterSets, *size);
  }
  parameters.width = size->width;
  parameters.height = size->height;
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

void RequireLibav(int result, const char* action) {
  if (result >= 0) {
    return;
  }
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(result, text.data(), text.size());
  throw Failure(ExitCode::kUnexpected,
                std::string("cannot ") + action + ": " + text.data() + "; " + kAdvice + ", or report this");
}

std::int64_t ToTicks(FrameClock::Seconds time) { return std::llround(time.count() * kTicksPerSecond); }

LibavPtr<AVFormatContext> MakeMp4Container() {
  // By default libav logs to standard error. Its error codes are reported instead.
  av_log_set_level(AV_LOG_QUIET);
  AVFormatContext* container = nullptr;
  avformat_alloc_output_context2(&container, nullptr, "mp4", nullptr);
  return MakeLibavPtr(container);
}

AVStream* AddH264Track(AVFormatContext& container, const Packet& first) {
  const std::vector<std::uint8_t> sets = ParameterSets(first.bytes);
  if (sets.empty() || !IsKeyFrame(first.bytes)) {
    throw Failure(ExitCode::kUnexpected,
                  std::string("the stream does not begin with a key frame; ") + kAdvice + ", or report this");
  }
  AVStream* const track = avformat_new_stream(&container, nullptr);
  if (track == nullptr) {
    throw std::bad_alloc();
  }
  track->time_base = {1, kTicksPerSecond};
  track->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
  track->codecpar->codec_id = AV_CODEC_ID_H264;
  track->codecpar->format = AV_PIX_FMT_YUV420P;
  ReadStreamSize(first, sets, *track->codecpar);
  // Extradata in Annex B format makes the muxer convert the packets, too.
  SetExtradata(sets, *track->codecpar);
  return track;
}

void FillPacket(AVPacket& packet, const AVStream& track, const Packet& source, std::int64_t time,
                std::int64_t duration) {
  // av_write_frame does not keep the data: the packet has no buffer reference and is written at once.
  packet.data =
      const_cast<std::uint8_t*>(source.bytes.data());  // NOLINT(cppcoreguidelines-pro-type-const-cast)
  packet.size = static_cast<int>(source.bytes.size());
  packet.stream_index = track.index;
  packet.flags = IsKeyFrame(source.bytes) ? AV_PKT_FLAG_KEY : 0;
  const AVRational ticks{1, kTicksPerSecond};
  packet.pts = av_rescale_q(time, ticks, track.time_base);
  packet.dts = packet.pts;
  packet.duration = av_rescale_q(duration, ticks, track.time_base);
}

}  // namespace nuveqcam
