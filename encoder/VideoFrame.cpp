#include <limits>
#include <new>

#include "MultiMediaEncoder.h"
#include "encoder/FrameLayout.h"

namespace {

// Size of a cache line, and sufficient for SIMD instructions.
constexpr std::align_val_t kAlignment{64};

}  // namespace

VideoFrame::VideoFrame() = default;

VideoFrame::~VideoFrame() { ReleaseBuffer(); }

bool VideoFrame::AllocBuffer(std::uint32_t frameWidth, std::uint32_t frameHeight, ColorSpace layout) {
  ReleaseBuffer();
  const std::uint64_t bytes = encoder::FrameBytes(frameWidth, frameHeight, layout);
  if (bytes == 0 || bytes > std::numeric_limits<std::int32_t>::max()) {
    return false;
  }
  memory = ::operator new(bytes, kAlignment, std::nothrow);
  if (memory == nullptr) {
    return false;
  }
  width = frameWidth;
  height = frameHeight;
  colorSpace = layout;
  data = static_cast<std::uint8_t*>(memory);
  size = static_cast<std::uint32_t>(bytes);
  return true;
}

void VideoFrame::ReleaseBuffer() {
  ::operator delete(memory, kAlignment);
  memory = nullptr;
  data = nullptr;
  size = 0;
  width = 0;
  height = 0;
}
