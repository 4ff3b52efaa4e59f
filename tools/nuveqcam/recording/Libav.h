// Ownership of libav objects, and error handling.
#pragma once

#include <array>
#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

#include "cli/Failure.h"

namespace nuveqcam {

struct FreeLibav {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
  void operator()(AVFormatContext* context) const { avformat_free_context(context); }
  void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
  // The context may have replaced its buffer.
  void operator()(AVIOContext* io) const {
    av_freep(&io->buffer);
    avio_context_free(&io);
  }
};

template <typename T>
using LibavPtr = std::unique_ptr<T, FreeLibav>;

// Throws std::bad_alloc for null, libav's out-of-memory result.
template <typename T>
LibavPtr<T> MakeLibavPtr(T* object) {
  if (object == nullptr) {
    throw std::bad_alloc();
  }
  return LibavPtr<T>(object);
}

// Throws Failure (kUnexpected) if the result is an error: "cannot <action>: <libav's message>; ...".
inline void RequireLibav(int result, const char* action) {
  if (result >= 0) {
    return;
  }
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(result, text.data(), text.size());
  throw Failure(ExitCode::kUnexpected, std::string("cannot ") + action + ": " + text.data() +
                                           "; record to an .h264 file instead, or report this");
}

}  // namespace nuveqcam
