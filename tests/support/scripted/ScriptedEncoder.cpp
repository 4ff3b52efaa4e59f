// Fake of the encoder library. A packet holds the first bytes of its frame.
#include "MultiMediaEncoder.h"

#include <cstdlib>
#include <cstring>
#include <limits>

#include "support/scripted/ScriptedPlatform.h"

using scripted::Answer;
using scripted::Platform;

namespace {

// Length and capacity of a packet.
constexpr std::size_t kPacketBytes = 8;
constexpr std::size_t kPacketCapacity = 32;

class ScriptedEncoder final : public VideoEncoder {
 public:
  bool Initialize(const EncodeParam& param) override {
    Platform::Get().NoteEncodeParam(param);
    const Answer answer = Platform::Get().Enter(
        "VideoEncoder::Initialize", std::to_string(param.width) + "x" + std::to_string(param.height) + ", " +
                                        std::to_string(param.frameRate) + " fps, colour space " +
                                        std::to_string(static_cast<std::uint32_t>(param.colorSpace)));
    return answer.hr == S_OK;
  }
  void Reserved1() override { Platform::Get().NoteMisuse("slot 1 of the encoder is called"); }
  void Reserved2() override { Platform::Get().NoteMisuse("slot 2 of the encoder is called"); }
  void Reserved3() override { Platform::Get().NoteMisuse("slot 3 of the encoder is called"); }

  std::int32_t Encode(VideoFrame* frame, AVEncodePacket* packet) override {
    const Answer answer = Platform::Get().Enter("VideoEncoder::Encode", std::to_string(frame->data[0]));
    Platform::Get().NoteEncoded(*frame);
    if (answer.hr != S_OK) {
      return answer.hr;
    }
    // SucceedsWithNull: the packet stays empty.
    if (answer.null) {
      return 0;
    }
    packet->memory = std::calloc(1, kPacketCapacity);
    packet->data = static_cast<std::uint8_t*>(packet->memory);
    packet->length = kPacketBytes;
    packet->capacity = kPacketCapacity;
    std::memcpy(packet->data, frame->data, frame->size < kPacketBytes ? frame->size : kPacketBytes);
    return 0;
  }
};

// Returns the size of a frame in bytes; 0 for an unknown layout.
std::uint64_t BytesPerFrame(std::uint32_t width, std::uint32_t height, ColorSpace layout) {
  const std::uint64_t pixels = std::uint64_t{width} * height;
  switch (layout) {
    case ColorSpace::kI420:
      return pixels * 3 / 2;
    case ColorSpace::kYuy2:
      return pixels * 2;
    case ColorSpace::kArgb32:
      return pixels * 4;
  }
  return 0;
}

}  // namespace

VideoEncoder* VideoEncoder::CreateDefaultEncoder() {
  const Answer answer = Platform::Get().Enter("VideoEncoder::CreateDefaultEncoder", "");
  if (answer.null || answer.hr != S_OK) {
    return nullptr;
  }
  auto* const encoder = new ScriptedEncoder;
  Platform::Get().Track(encoder, "encoder", [encoder] { VideoEncoder::ReleaseEncoder(encoder); });
  return encoder;
}

void VideoEncoder::ReleaseEncoder(VideoEncoder* encoder) {
  Platform::Get().Enter("VideoEncoder::ReleaseEncoder", encoder == nullptr ? "null" : "");
  if (encoder == nullptr) {
    return;
  }
  if (!Platform::Get().Untrack(encoder)) {
    Platform::Get().NoteMisuse("an encoder is released twice");
    return;
  }
  delete static_cast<ScriptedEncoder*>(encoder);
}

VideoFrame::VideoFrame() {
  Platform::Get().Track(this, "frame", [this] { delete this; });
}

VideoFrame::~VideoFrame() {
  if (memory != nullptr) {
    Platform::Get().NoteMisuse("a frame is destroyed with its buffer");
  }
  Platform::Get().Untrack(this);
}

bool VideoFrame::AllocBuffer(std::uint32_t frameWidth, std::uint32_t frameHeight, ColorSpace layout) {
  const Answer answer = Platform::Get().Enter(
      "VideoFrame::AllocBuffer", std::to_string(frameWidth) + ", " + std::to_string(frameHeight) + ", " +
                                     std::to_string(static_cast<std::uint32_t>(layout)));
  const std::uint64_t bytes = BytesPerFrame(frameWidth, frameHeight, layout);
  constexpr std::uint64_t kMax = std::numeric_limits<std::int32_t>::max();
  if (answer.hr != S_OK || bytes == 0 || bytes > kMax) {
    return false;
  }
  // SucceedsWithNull: a frame without memory.
  if (answer.null) {
    return true;
  }
  width = frameWidth;
  height = frameHeight;
  colorSpace = layout;
  memory = std::malloc(bytes);
  data = static_cast<std::uint8_t*>(memory);
  size = static_cast<std::uint32_t>(bytes);
  // Simulates reused memory, so that missing initialisation is detected.
  constexpr int kDirt = 0xCD;
  std::memset(data, kDirt, size);
  return true;
}

void VideoFrame::ReleaseBuffer() {
  Platform::Get().Enter("VideoFrame::ReleaseBuffer", "");
  std::free(memory);
  memory = nullptr;
  data = nullptr;
  size = 0;
}

AVEncodePacket::AVEncodePacket() {
  Platform::Get().Enter("AVEncodePacket::AVEncodePacket", "");
  Platform::Get().Track(this, "packet", [this] { Platform::Get().Untrack(this); });
}

AVEncodePacket::~AVEncodePacket() {
  Platform::Get().Enter("AVEncodePacket::~AVEncodePacket", "");
  Platform::Get().Untrack(this);
  std::free(memory);
}
