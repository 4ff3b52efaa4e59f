#include "Clip.h"

#include <libyuv.h>

#include <cstdint>
#include <cstring>
#include <new>

#include "support/video/TestPictures.h"

namespace bench {

Clip MakeClip(int width, int height, ColorSpace layout, int frames) {
  const auto w = static_cast<std::uint32_t>(width);
  const auto h = static_cast<std::uint32_t>(height);
  const std::size_t luma = std::size_t{w} * h;
  video::MovingClip clip(w, h);
  std::vector<std::uint8_t> i420(luma + luma / 2);
  std::uint8_t* const y = i420.data();
  std::uint8_t* const u = y + luma;
  std::uint8_t* const v = u + luma / 4;
  Clip result;
  for (int i = 0; i < frames; ++i) {
    clip.Draw(static_cast<std::uint64_t>(i), i420.data());
    auto frame = std::make_unique<VideoFrame>();
    if (!frame->AllocBuffer(w, h, layout)) {
      throw std::bad_alloc();
    }
    if (layout == ColorSpace::kI420) {
      std::memcpy(frame->data, i420.data(), i420.size());
    } else if (layout == ColorSpace::kYuy2) {
      libyuv::I420ToYUY2(y, width, u, width / 2, v, width / 2, frame->data, width * 2, width, height);
    } else {
      libyuv::I420ToARGB(y, width, u, width / 2, v, width / 2, frame->data, width * 4, width, -height);
    }
    result.push_back(std::move(frame));
  }
  return result;
}

VideoFrame& FrameOf(const Clip& clip, std::size_t number) {
  const std::size_t index = number % (2 * clip.size());
  return *clip[index < clip.size() ? index : 2 * clip.size() - 1 - index];
}

}  // namespace bench
