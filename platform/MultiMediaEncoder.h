// Interface of the H.264 encoder library, a separate shared library. The layouts are a binary contract.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(_WIN32)
#if defined(MULTI_MEDIA_ENCODER_BUILD)
#define MULTI_MEDIA_ENCODER_EXPORT __declspec(dllexport)
#else
#define MULTI_MEDIA_ENCODER_EXPORT __declspec(dllimport)
#endif
#else
#define MULTI_MEDIA_ENCODER_EXPORT __attribute__((visibility("default")))
#endif

// Layout of a raw frame. The encoder library refuses other values.
enum class ColorSpace : std::uint32_t {
  kI420 = 1,    // 4:2:0 planar, Y then U then V
  kYuy2 = 3,    // 4:2:2 packed, Y0 U Y1 V, top-down
  kArgb32 = 4,  // B G R A in memory, bottom-up
};

// One raw frame and its memory. Not thread-safe.
class MULTI_MEDIA_ENCODER_EXPORT VideoFrame {
 public:
  VideoFrame();
  ~VideoFrame();
  VideoFrame(const VideoFrame&) = delete;
  VideoFrame& operator=(const VideoFrame&) = delete;

  // Allocates memory for one frame of the given size in pixels and layout. On failure returns false and
  // leaves the frame empty.
  bool AllocBuffer(std::uint32_t frameWidth, std::uint32_t frameHeight, ColorSpace layout);
  // Frees that memory. No effect on an empty frame.
  void ReleaseBuffer();

  std::uint32_t width = 0;
  std::uint32_t height = 0;
  ColorSpace colorSpace = ColorSpace::kI420;
  std::uint32_t reserved = 0;
  std::uint8_t* data = nullptr;  // null while empty
  std::uint32_t size = 0;        // bytes at data
  std::uint32_t unused = 0;
  void* memory = nullptr;  // the allocation that data points into
};
static_assert(offsetof(VideoFrame, width) == 0);
static_assert(offsetof(VideoFrame, height) == 4);
static_assert(offsetof(VideoFrame, colorSpace) == 8);
static_assert(offsetof(VideoFrame, data) == 16);
static_assert(offsetof(VideoFrame, size) == 24);
static_assert(offsetof(VideoFrame, memory) == 32);
static_assert(sizeof(VideoFrame) == 40);

// One encoded frame: a complete H.264 access unit in Annex B format. Owns its bytes, which are valid until
// the packet is destroyed or passed to Encode again.
class MULTI_MEDIA_ENCODER_EXPORT AVEncodePacket {
 public:
  AVEncodePacket();
  ~AVEncodePacket();
  AVEncodePacket(const AVEncodePacket&) = delete;
  AVEncodePacket& operator=(const AVEncodePacket&) = delete;

  void* memory = nullptr;        // the allocation that data points into
  std::uint8_t* data = nullptr;  // null while empty
  std::uint32_t length = 0;      // bytes at data
  std::uint32_t capacity = 0;
};
static_assert(offsetof(AVEncodePacket, memory) == 0);
static_assert(offsetof(AVEncodePacket, data) == 8);
static_assert(offsetof(AVEncodePacket, length) == 16);
static_assert(offsetof(AVEncodePacket, capacity) == 20);
static_assert(sizeof(AVEncodePacket) == 24);

// Encodes a sequence of frames. Not thread-safe.
class MULTI_MEDIA_ENCODER_EXPORT VideoEncoder {
 public:
  struct EncodeParam {
    std::uint32_t width;  // pixels
    std::uint32_t height;
    std::uint32_t frameRate;  // whole frames per second; 0 means 30
    ColorSpace colorSpace;    // layout of the raw frames
    std::uint16_t colorCode;  // 1 with ColorSpace::kYuy2, otherwise 2
    std::uint16_t padding18;
    std::uint32_t outWidth;  // size of the encoded picture; must equal width and height
    std::uint32_t outHeight;
    std::uint32_t unnamed28;
    std::uint16_t keyFrameInterval;  // in frames; 0: only the first frame is a key frame
    std::uint16_t unnamed34;
    std::uint16_t unnamed36;
    std::uint16_t bitRate;  // kbit/s
    std::uint32_t unnamed40;
  };

  // Returns null if memory is exhausted. Free with ReleaseEncoder, which accepts null.
  static VideoEncoder* CreateDefaultEncoder();
  static void ReleaseEncoder(VideoEncoder* encoder);

  // Slot 0. True if the encoder accepts the parameters.
  virtual bool Initialize(const EncodeParam& param) = 0;
  virtual void Reserved1() = 0;
  virtual void Reserved2() = 0;
  virtual void Reserved3() = 0;
  // Slot 4. Encodes one frame into the packet. Returns 0 or the encoder's error code.
  virtual std::int32_t Encode(VideoFrame* frame, AVEncodePacket* packet) = 0;

 protected:
  // Not virtual, so that it adds no slot. Use ReleaseEncoder.
  ~VideoEncoder() = default;
};
static_assert(offsetof(VideoEncoder::EncodeParam, width) == 0);
static_assert(offsetof(VideoEncoder::EncodeParam, height) == 4);
static_assert(offsetof(VideoEncoder::EncodeParam, frameRate) == 8);
static_assert(offsetof(VideoEncoder::EncodeParam, colorSpace) == 12);
static_assert(offsetof(VideoEncoder::EncodeParam, colorCode) == 16);
static_assert(offsetof(VideoEncoder::EncodeParam, padding18) == 18);
static_assert(offsetof(VideoEncoder::EncodeParam, outWidth) == 20);
static_assert(offsetof(VideoEncoder::EncodeParam, outHeight) == 24);
static_assert(offsetof(VideoEncoder::EncodeParam, unnamed28) == 28);
static_assert(offsetof(VideoEncoder::EncodeParam, keyFrameInterval) == 32);
static_assert(offsetof(VideoEncoder::EncodeParam, unnamed34) == 34);
static_assert(offsetof(VideoEncoder::EncodeParam, unnamed36) == 36);
static_assert(offsetof(VideoEncoder::EncodeParam, bitRate) == 38);
static_assert(offsetof(VideoEncoder::EncodeParam, unnamed40) == 40);
static_assert(sizeof(VideoEncoder::EncodeParam) == 44);
