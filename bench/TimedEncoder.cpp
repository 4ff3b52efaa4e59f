#include "TimedEncoder.h"

#include <new>
#include <thread>

#include "encoder/EncoderSettings.h"
#include "encoder/H264Encoder.h"

// The linker's --wrap leads the camera library's calls here, and those of the encoder's conversion, by these
// symbols.
MULTI_MEDIA_ENCODER_EXPORT VideoEncoder* MakeTimedEncoder() asm(
    "__wrap__ZN12VideoEncoder20CreateDefaultEncoderEv");
MULTI_MEDIA_ENCODER_EXPORT void DropTimedEncoder(VideoEncoder* encoder) asm(
    "__wrap__ZN12VideoEncoder14ReleaseEncoderEPS_");
encoder::Planes TimedConvert(encoder::I420Converter* converter,
                             std::uint8_t* bytes) asm("__wrap__ZN7encoder13I420Converter7ConvertEPh");
encoder::Planes RealConvert(encoder::I420Converter* converter,
                            std::uint8_t* bytes) asm("__real__ZN7encoder13I420Converter7ConvertEPh");

namespace timed {
namespace {

struct Watch {
  int sliceThreads = 0;
  std::vector<EncodeTimes> times;
  std::size_t next = 0;
  Clock::duration convert{};
};

Watch& TheWatch() {
  static Watch watch;
  return watch;
}

class TimedEncoder final : public VideoEncoder {
 public:
  TimedEncoder() : m_encoder(TheWatch().sliceThreads) {}

  bool Initialize(const EncodeParam& param) override { return m_encoder.Initialize(param); }
  void Reserved1() override {}
  void Reserved2() override {}
  void Reserved3() override {}

  std::int32_t Encode(VideoFrame* frame, AVEncodePacket* packet) override {
    Watch& watch = TheWatch();
    watch.convert = {};
    const Clock::time_point start = Clock::now();
    const std::int32_t error = m_encoder.Encode(frame, packet);
    const Clock::time_point end = Clock::now();
    if (watch.next < watch.times.size()) {
      watch.times[watch.next++] = {start, end, watch.convert};
    }
    return error;
  }

 private:
  encoder::H264Encoder m_encoder;
};

}  // namespace

void Prepare(int sliceThreads, std::size_t frames) {
  Watch& watch = TheWatch();
  watch.sliceThreads = sliceThreads;
  watch.times.assign(frames, {});
  watch.next = 0;
}

int SliceThreadsOfTheProduct(int width, int height) {
  return encoder::SliceThreads(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                               std::thread::hardware_concurrency());
}

const std::vector<EncodeTimes>& Times() { return TheWatch().times; }

}  // namespace timed

VideoEncoder* MakeTimedEncoder() { return new (std::nothrow) timed::TimedEncoder; }

void DropTimedEncoder(VideoEncoder* encoder) { delete static_cast<timed::TimedEncoder*>(encoder); }

encoder::Planes TimedConvert(encoder::I420Converter* converter, std::uint8_t* bytes) {
  const timed::Clock::time_point start = timed::Clock::now();
  const encoder::Planes planes = RealConvert(converter, bytes);
  timed::TheWatch().convert = timed::Clock::now() - start;
  return planes;
}
