// FFmpeg's headers, and owning pointers to its objects.
#pragma once

#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

namespace simulated {

struct FreeLibAv {
  void operator()(AVFormatContext* format) const { avformat_close_input(&format); }
  void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

template <typename Object>
using LibAvHandle = std::unique_ptr<Object, FreeLibAv>;

}  // namespace simulated
