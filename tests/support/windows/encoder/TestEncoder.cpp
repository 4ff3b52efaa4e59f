// The encoder library with two slice threads, whatever the picture and the PC, and with frames for which
// there is no memory when a test says so.
#include <windows.h>

#include <malloc.h>

#include <atomic>
#include <new>

#include "encoder/H264Encoder.h"

namespace {

// Frames that there is memory for; fewer than none: as many as are wanted.
std::atomic<int> framesLeft{-1};

bool TakeFrameMemory() { return framesLeft < 0 || framesLeft-- > 0; }

}  // namespace

extern "C" __declspec(dllexport) void LimitFrames(int count) { framesLeft = count; }

VideoEncoder* VideoEncoder::CreateDefaultEncoder() {
  constexpr int kThreads = 2;
  return new (std::nothrow) encoder::H264Encoder(kThreads);
}

void VideoEncoder::ReleaseEncoder(VideoEncoder* encoder) {
  delete static_cast<encoder::H264Encoder*>(encoder);
}

// Only frames need this alignment.
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t& /*tag*/) noexcept {
  return TakeFrameMemory() ? _aligned_malloc(size, static_cast<std::size_t>(alignment)) : nullptr;
}

void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept { _aligned_free(memory); }
