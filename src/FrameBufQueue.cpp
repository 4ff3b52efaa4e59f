#include "FrameBufQueue.h"

#include <memory>

FrameBufQueue::~FrameBufQueue() { Uninit(); }

bool FrameBufQueue::Init(std::uint32_t count, std::uint32_t frameWidth, std::uint32_t frameHeight,
                         ColorSpace layout) {
  if (frameWidth == 0 || frameHeight == 0) {
    return false;
  }
  width = frameWidth;
  height = frameHeight;
  colorSpace = layout;
  return CBufferQueue::Init(count);
}

VideoFrame* FrameBufQueue::CreateBuffer() {
  auto frame = std::make_unique<VideoFrame>();
  return frame->AllocBuffer(width, height, colorSpace) ? frame.release() : nullptr;
}

void FrameBufQueue::DestroyBuffer(VideoFrame* buffer) {
  const std::unique_ptr<VideoFrame> frame(buffer);
  if (frame != nullptr) {
    frame->ReleaseBuffer();
  }
}
