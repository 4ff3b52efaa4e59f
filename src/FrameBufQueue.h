// Pool of raw video frames between the capture graph and the encoder thread.
#pragma once

#include <cstdint>

#include "CBufferQueue.h"
#include "MultiMediaEncoder.h"

class FrameBufQueue : public CBufferQueue<VideoFrame*> {
 public:
  FrameBufQueue() = default;
  ~FrameBufQueue() override;

  VideoFrame* CreateBuffer() override;
  void DestroyBuffer(VideoFrame* buffer) override;

  // Creates count frames of the given size in pixels and layout. False for an empty size, if a pool exists,
  // or if a frame cannot be allocated.
  bool Init(std::uint32_t count, std::uint32_t frameWidth, std::uint32_t frameHeight, ColorSpace layout);

 private:
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  ColorSpace colorSpace = ColorSpace::kI420;
};
