// The encoder library with two slice threads for every picture size, and with allocation failures on request.
#include <windows.h>

#include <malloc.h>

#include <atomic>
#include <new>

#include "encoder/H264Encoder.h"

namespace {

// Number of frame buffers that can still be allocated; negative: unlimited.
std::atomic<int> framesLeft{-1};

bool CanAllocateFrame() { return framesLeft < 0 || framesLeft-- > 0; }

}  // namespace

// Negative: no limit.
extern "C" __declspec(dllexport) void LimitFrames(int count) { framesLeft = count; }

VideoEncoder* VideoEncoder::CreateDefaultEncoder() {
  constexpr int kThreads = 2;
  return new (std::nothrow) encoder::H264Encoder(kThreads);
}

void VideoEncoder::ReleaseEncoder(VideoEncoder* encoder) {
  delete static_cast<encoder::H264Encoder*>(encoder);
}

// Only frame buffers are allocated with an alignment.
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t& /*tag*/) noexcept {
  return CanAllocateFrame() ? _aligned_malloc(size, static_cast<std::size_t>(alignment)) : nullptr;
}

void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept { _aligned_free(memory); }
