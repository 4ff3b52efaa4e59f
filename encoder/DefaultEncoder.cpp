// The factory functions of the library. They have a file of their own because the Windows test fixtures link
// the encoder with other ones.
#include <new>

#include "encoder/H264Encoder.h"

VideoEncoder* VideoEncoder::CreateDefaultEncoder() { return new (std::nothrow) encoder::H264Encoder; }

void VideoEncoder::ReleaseEncoder(VideoEncoder* encoder) {
  delete static_cast<encoder::H264Encoder*>(encoder);
}
