// Owners of libav's objects.
#pragma once

#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

struct FreeLibav {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
  void operator()(AVFormatContext* context) const { avformat_free_context(context); }
  void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
  // The buffer is the context's to replace, so it is freed through it.
  void operator()(AVIOContext* io) const {
    av_freep(&io->buffer);
    avio_context_free(&io);
  }
};

template <typename T>
using Libav = std::unique_ptr<T, FreeLibav>;

// Throws std::bad_alloc for null, which is how libav says that there is no memory.
template <typename T>
Libav<T> OwnLibav(T* object) {
  if (object == nullptr) {
    throw std::bad_alloc();
  }
  return Libav<T>(object);
}

// What an error code of libav's means, for people.
std::string LibavText(int error);

// Throws Failure (kUnexpected): "cannot <what>: ..." when the result is an error.
void RequireLibav(int result, const char* what);
