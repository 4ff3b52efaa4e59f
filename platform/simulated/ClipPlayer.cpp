#include "simulated/ClipPlayer.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>
#include <stdexcept>
#include <utility>

namespace simulated {
namespace {

// By default FFmpeg's libraries log to stderr, for a damaged clip at least a line for each picture. The log
// level is global to the process, so it is changed only when a clip is played for the first time.
void SilenceLibAv() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

std::string ErrorText(int error) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  return error == AVERROR_INVALIDDATA                        ? "it is not a video file"
         : av_strerror(error, text.data(), text.size()) == 0 ? text.data()
                                                             : "unknown error";
}

}  // namespace

ClipPlayer::ClipPlayer(std::string file, std::uint32_t width, std::uint32_t height)
    : m_file(std::move(file)),
      m_scaler(width, height),
      m_packet(av_packet_alloc()),
      m_frame(av_frame_alloc()) {
  if (!m_packet || !m_frame) {
    throw std::bad_alloc();
  }
  SilenceLibAv();
  Open();
  m_hasPicture = Decode();
  if (!m_hasPicture) {
    Fail("none of its pictures can be decoded");
  }
}

const std::vector<std::uint8_t>& ClipPlayer::Next() {
  if (!m_hasPicture && !Decode()) {
    // Reopen the file because not every format can seek.
    Open();
    if (!Decode()) {
      Fail("none of its pictures can be decoded");
    }
  }
  m_hasPicture = false;
  try {
    return m_scaler.Scale(*m_frame, av_guess_sample_aspect_ratio(m_input.get(), m_stream, m_frame.get()));
  } catch (const std::runtime_error& error) {
    Fail(error.what());
  }
}

void ClipPlayer::Open() {
  m_decoder.reset();
  m_isAtEnd = false;
  // The prefix and the whitelist prevent the name, or a playlist, from selecting another protocol.
  AVDictionary* options = nullptr;
  av_dict_set(&options, "protocol_whitelist", "file", 0);
  AVFormatContext* input = nullptr;
  const std::string name = "file:" + m_file;
  int error = avformat_open_input(&input, name.c_str(), nullptr, &options);
  av_dict_free(&options);
  m_input.reset(input);
  if (error < 0) {
    Fail(ErrorText(error));
  }
  // libavformat detects any longer text as terminal art.
  if (std::strcmp(m_input->iformat->name, "tty") == 0) {
    Fail(ErrorText(AVERROR_INVALIDDATA));
  }
  error = avformat_find_stream_info(m_input.get(), nullptr);
  if (error < 0) {
    Fail(ErrorText(error));
  }
  const AVCodec* decoder = nullptr;
  const int stream = av_find_best_stream(m_input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
  if (stream == AVERROR_DECODER_NOT_FOUND) {
    Fail("there is no decoder for its video");
  }
  if (stream < 0) {
    Fail("it contains no video");
  }
  m_stream = m_input->streams[stream];
  // libavformat reports the cover of a music file as a video stream.
  if ((m_stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) {
    Fail("it contains no video");
  }
  OpenDecoder(decoder);
}

void ClipPlayer::OpenDecoder(const AVCodec* decoder) {
  m_decoder.reset(avcodec_alloc_context3(decoder));
  if (!m_decoder) {
    throw std::bad_alloc();
  }
  int error = avcodec_parameters_to_context(m_decoder.get(), m_stream->codecpar);
  if (error >= 0) {
    error = avcodec_open2(m_decoder.get(), decoder, nullptr);
  }
  if (error < 0) {
    Fail("its video cannot be decoded: " + ErrorText(error));
  }
}

bool ClipPlayer::Decode() {
  for (;;) {
    const int result = avcodec_receive_frame(m_decoder.get(), m_frame.get());
    if (result == 0) {
      return true;
    }
    // After an error the decoder continues with the next packet.
    if (m_isAtEnd) {
      return false;
    }
    FeedDecoder();
  }
}

void ClipPlayer::FeedDecoder() {
  // Packets that cannot be decoded are skipped. At the end of the file a null packet flushes the decoder.
  m_isAtEnd = av_read_frame(m_input.get(), m_packet.get()) < 0;
  if (m_isAtEnd) {
    avcodec_send_packet(m_decoder.get(), nullptr);
  } else if (m_packet->stream_index == m_stream->index) {
    avcodec_send_packet(m_decoder.get(), m_packet.get());
  }
  av_packet_unref(m_packet.get());
}

void ClipPlayer::Fail(const std::string& cause) const {
  throw std::runtime_error("cannot play " + m_file + ": " + cause);
}

}  // namespace simulated
