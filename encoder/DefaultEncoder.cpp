// The encoder that the library hands out.
#include <new>

#include "encoder/H264Encoder.h"

VideoEncoder* VideoEncoder::CreateDefaultEncoder() { return new (std::nothrow) encoder::H264Encoder; }

void VideoEncoder::ReleaseEncoder(VideoEncoder* encoder) {
  delete static_cast<encoder::H264Encoder*>(encoder);
}
