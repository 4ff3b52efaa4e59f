// Cost of encoding frames by size, layout and slice threads, and of conversion and copies.
//
//   build/native/bin/encoder_bench --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
//
// Absolute times depend on the machine and its load; compare results of the same run only.
#include <benchmark/benchmark.h>
#include <libyuv.h>

#include <chrono>
#include <cstring>
#include <vector>

#include "Clip.h"
#include "Failures.h"
#include "encoder/H264Encoder.h"
#include "encoder/I420Converter.h"
#include "encoder/PacketMemory.h"

namespace bench {
namespace {

VideoEncoder::EncodeParam Param(int width, int height, ColorSpace layout) {
  VideoEncoder::EncodeParam param{};
  param.width = static_cast<std::uint32_t>(width);
  param.height = static_cast<std::uint32_t>(height);
  param.frameRate = 30;
  param.colorSpace = layout;
  param.outWidth = param.width;
  param.outHeight = param.height;
  param.keyFrameInterval = 150;
  param.bitRate = 1536;
  return param;
}

// Arguments: width, height, layout, slice threads.
void EncodeFrame(benchmark::State& state) {
  const auto width = static_cast<int>(state.range(0));
  const auto height = static_cast<int>(state.range(1));
  const auto layout = static_cast<ColorSpace>(state.range(2));
  const auto frames = MakeClip(width, height, layout);
  encoder::H264Encoder encoder(static_cast<int>(state.range(3)));
  if (!encoder.Initialize(Param(width, height, layout))) {
    Fail(state, "the encoder rejected the parameters");
    return;
  }
  std::size_t next = 0;
  for (auto _ : state) {
    AVEncodePacket packet;
    if (encoder.Encode(&FrameOf(frames, next++), &packet) != 0) {
      Fail(state, "encoding failed");
      return;
    }
  }
}

// Conversion only. Arguments: width, height, layout.
void ConvertFrame(benchmark::State& state) {
  const auto width = static_cast<int>(state.range(0));
  const auto height = static_cast<int>(state.range(1));
  const auto layout = static_cast<ColorSpace>(state.range(2));
  const auto frames = MakeClip(width, height, layout);
  encoder::I420Converter converter(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                                   layout);
  std::size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(converter.Convert(FrameOf(frames, next++).data));
    benchmark::ClobberMemory();
  }
}

// Conversion with one libyuv call per picture: no prefetching, and bottom-up pictures are read backwards.
// Arguments: width, height, layout.
void ConvertWhole(benchmark::State& state) {
  const auto width = static_cast<int>(state.range(0));
  const auto height = static_cast<int>(state.range(1));
  const auto layout = static_cast<ColorSpace>(state.range(2));
  const auto frames = MakeClip(width, height, layout);
  VideoFrame planes;
  if (!planes.AllocBuffer(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                          ColorSpace::kI420)) {
    Fail(state, "no memory");
    return;
  }
  std::uint8_t* const u = planes.data + width * height;
  std::uint8_t* const v = u + width * height / 4;
  std::size_t next = 0;
  for (auto _ : state) {
    const std::uint8_t* const bytes = FrameOf(frames, next++).data;
    if (layout == ColorSpace::kYuy2) {
      libyuv::YUY2ToI420(bytes, width * 2, planes.data, width, u, width / 2, v, width / 2, width, height);
    } else {
      libyuv::ARGBToI420(bytes, width * 4, planes.data, width, u, width / 2, v, width / 2, width, -height);
    }
    benchmark::ClobberMemory();
  }
}

// memcpy of a frame, as into the frame pool. Arguments: width, height, layout.
void CopyFrame(benchmark::State& state) {
  const auto layout = static_cast<ColorSpace>(state.range(2));
  const auto frames = MakeClip(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), layout);
  std::vector<std::uint8_t> copy(frames.front()->size);
  std::size_t next = 0;
  for (auto _ : state) {
    std::memcpy(copy.data(), FrameOf(frames, next++).data, copy.size());
    benchmark::ClobberMemory();
  }
}

// Share of copy and conversion in the time per frame. Arguments: width, height, layout.
void ShareOfOther(benchmark::State& state) {
  const auto width = static_cast<int>(state.range(0));
  const auto height = static_cast<int>(state.range(1));
  const auto layout = static_cast<ColorSpace>(state.range(2));
  const auto frames = MakeClip(width, height, layout);
  encoder::I420Converter converter(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                                   layout);
  encoder::H264Encoder encoder(1);
  VideoFrame pooled;
  if (!encoder.Initialize(Param(width, height, layout)) ||
      !pooled.AllocBuffer(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height), layout)) {
    Fail(state, "the encoder rejected the parameters");
    return;
  }
  using Clock = std::chrono::steady_clock;
  Clock::duration other{};
  Clock::duration whole{};
  std::size_t next = 0;
  for (auto _ : state) {
    const Clock::time_point start = Clock::now();
    std::memcpy(pooled.data, FrameOf(frames, next++).data, pooled.size);
    const Clock::time_point copied = Clock::now();
    AVEncodePacket packet;
    benchmark::DoNotOptimize(encoder.Encode(&pooled, &packet));
    const Clock::time_point encoded = Clock::now();
    benchmark::DoNotOptimize(converter.Convert(pooled.data));
    other += (copied - start) + (Clock::now() - encoded);
    whole += encoded - start;
  }
  state.counters["percent"] = 100.0 * static_cast<double>(other.count()) / static_cast<double>(whole.count());
}

// Construction, fill and destruction of a packet. Argument: size in bytes.
void PassPacket(benchmark::State& state) {
  const std::vector<std::uint8_t> bytes(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    AVEncodePacket packet;
    if (encoder::Reserve(packet, static_cast<std::uint32_t>(bytes.size()))) {
      std::memcpy(packet.data, bytes.data(), bytes.size());
    }
    benchmark::ClobberMemory();
  }
}

const std::vector<std::vector<std::int64_t>> kSizes = {{320, 240}, {640, 480}, {1280, 720}, {1920, 1080}};

void Sizes(benchmark::internal::Benchmark* bench) {
  for (const auto& size : kSizes) {
    for (const std::int64_t layout : {1, 3, 4}) {
      bench->Args({size[0], size[1], layout});
    }
  }
}

void PackedSizes(benchmark::internal::Benchmark* bench) {
  for (const auto& size : kSizes) {
    for (const std::int64_t layout : {3, 4}) {
      bench->Args({size[0], size[1], layout});
    }
  }
}

void SizesAndThreads(benchmark::internal::Benchmark* bench) {
  for (const auto& size : kSizes) {
    for (const std::int64_t layout : {1, 3, 4}) {
      for (const std::int64_t threads : {1, 2}) {
        bench->Args({size[0], size[1], layout, threads});
      }
    }
  }
}

BENCHMARK(EncodeFrame)
    ->Apply(SizesAndThreads)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();
BENCHMARK(ConvertFrame)->Apply(Sizes)->Unit(benchmark::kMillisecond);
BENCHMARK(ConvertWhole)->Apply(PackedSizes)->Unit(benchmark::kMillisecond);
BENCHMARK(CopyFrame)->Apply(Sizes)->Unit(benchmark::kMillisecond);
BENCHMARK(ShareOfOther)->Apply(Sizes)->Unit(benchmark::kMillisecond);
BENCHMARK(PassPacket)->Arg(1000)->Arg(6400)->Arg(100000)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace bench

int main(int argc, char** argv) { return bench::RunBenchmarks(argc, argv); }
