#include "TimedEncoder.h"

#include <new>
#include <thread>

#include "encoder/EncoderSettings.h"
#include "encoder/H264Encoder.h"

// The linker option --wrap redirects calls of the encoder library and of its converter to these symbols.
MULTI_MEDIA_ENCODER_EXPORT VideoEncoder* CreateTimedEncoder() asm(
    "__wrap__ZN12VideoEncoder20CreateDefaultEncoderEv");
MULTI_MEDIA_ENCODER_EXPORT void ReleaseTimedEncoder(VideoEncoder* encoder) asm(
    "__wrap__ZN12VideoEncoder14ReleaseEncoderEPS_");
encoder::Planes TimedConvert(encoder::I420Converter* converter,
                             std::uint8_t* bytes) asm("__wrap__ZN7encoder13I420Converter7ConvertEPh");
encoder::Planes RealConvert(encoder::I420Converter* converter,
                            std::uint8_t* bytes) asm("__real__ZN7encoder13I420Converter7ConvertEPh");

namespace bench {
namespace {

struct Recording {
  int sliceThreads = 0;
  std::vector<EncodeTimes> times;
  std::size_t next = 0;
  Clock::duration convert{};
};

Recording& CurrentRecording() {
  static Recording recording;
  return recording;
}

class TimedEncoder final : public VideoEncoder {
 public:
  TimedEncoder() : m_encoder(CurrentRecording().sliceThreads) {}

  bool Initialize(const EncodeParam& param) override { return m_encoder.Initialize(param); }
  void Reserved1() override {}
  void Reserved2() override {}
  void Reserved3() override {}

  std::int32_t Encode(VideoFrame* frame, AVEncodePacket* packet) override {
    Recording& recording = CurrentRecording();
    recording.convert = {};
    const Clock::time_point start = Clock::now();
    const std::int32_t error = m_encoder.Encode(frame, packet);
    const Clock::time_point end = Clock::now();
    if (recording.next < recording.times.size()) {
      recording.times[recording.next++] = {start, end, recording.convert};
    }
    return error;
  }

 private:
  encoder::H264Encoder m_encoder;
};

}  // namespace

void StartRecording(int sliceThreads, std::size_t frames) {
  Recording& recording = CurrentRecording();
  recording.sliceThreads = sliceThreads;
  recording.times.assign(frames, {});
  recording.next = 0;
}

int DefaultSliceThreads(int width, int height) {
  return encoder::SliceThreads(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                               std::thread::hardware_concurrency());
}

const std::vector<EncodeTimes>& RecordedTimes() { return CurrentRecording().times; }

}  // namespace bench

VideoEncoder* CreateTimedEncoder() { return new (std::nothrow) bench::TimedEncoder; }

void ReleaseTimedEncoder(VideoEncoder* encoder) { delete static_cast<bench::TimedEncoder*>(encoder); }

encoder::Planes TimedConvert(encoder::I420Converter* converter, std::uint8_t* bytes) {
  const bench::Clock::time_point start = bench::Clock::now();
  const encoder::Planes planes = RealConvert(converter, bytes);
  bench::CurrentRecording().convert = bench::Clock::now() - start;
  return planes;
}
