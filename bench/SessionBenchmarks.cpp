#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <thread>

#include "CameraSession.h"
#include "Failures.h"
#include "PipelineBenchmarks.h"
#include "Statistics.h"

namespace bench {
namespace {

// Frames at the start of a session that are excluded from the results.
constexpr int kWarmUp = 10;
constexpr double kFrameTimeAt30Fps = 1000.0 / 30;

struct Session {
  PictureKind kind;
  int sliceThreads;
  int fps;
  int frames;  // without the warm-up

  CameraSettings Settings() const { return {kind.width, kind.height, kind.layout, fps, sliceThreads}; }
  std::string Name() const {
    return kind.Name() + "/slice_threads:" + std::to_string(sliceThreads) + "/fps:" + std::to_string(fps);
  }
};

// A frame pool like that of the library, as the destination of reference copies.
class ReferencePool {
 public:
  explicit ReferencePool(const PictureKind& kind) : m_buffers(5) {
    for (VideoFrame& buffer : m_buffers) {
      if (!buffer.AllocBuffer(static_cast<std::uint32_t>(kind.width), static_cast<std::uint32_t>(kind.height),
                              kind.layout)) {
        throw std::bad_alloc();
      }
    }
  }

  double MillisecondsToCopy(const VideoFrame& frame) {
    VideoFrame& buffer = m_buffers[m_next++ % m_buffers.size()];
    const Clock::time_point start = Clock::now();
    std::memcpy(buffer.data, frame.data, frame.size);
    benchmark::ClobberMemory();
    return Milliseconds(Clock::now() - start);
  }

 private:
  std::vector<VideoFrame> m_buffers;
  std::size_t m_next = 0;
};

// Durations of all frames after the warm-up, in milliseconds.
struct Durations {
  std::vector<double> latency;
  std::vector<double> encode;   // in the encoder library
  std::vector<double> convert;  // part of encode: conversion to I420
  std::vector<double> bufferCb;

  explicit Durations(const std::vector<FrameTimes>& frames) {
    for (std::size_t i = kWarmUp; i < frames.size(); ++i) {
      latency.push_back(Milliseconds(frames[i].callback - frames[i].entry));
      encode.push_back(Milliseconds(frames[i].encode.end - frames[i].encode.start));
      convert.push_back(Milliseconds(frames[i].encode.convert));
      bufferCb.push_back(Milliseconds(frames[i].returned - frames[i].entry));
    }
  }
};

void ReportLatency(benchmark::State& state, const Durations& durations) {
  state.counters["latency_p50_ms"] = Median(durations.latency);
  state.counters["latency_p99_ms"] = Percentile(durations.latency, 99);
  state.counters["latency_max_ms"] = Percentile(durations.latency, 100);
  state.counters["encode_p50_ms"] = Median(durations.encode);
  state.counters["convert_p50_us"] = 1000 * Median(durations.convert);
}

void ReportAdded(benchmark::State& state, const Durations& durations, double copy) {
  std::vector<double> added;
  std::vector<double> other;
  for (std::size_t i = 0; i < durations.latency.size(); ++i) {
    added.push_back(durations.latency[i] - durations.encode[i] - copy);
    const double encoding = durations.encode[i] - durations.convert[i];
    other.push_back(100 * (1 - encoding / durations.latency[i]));
  }
  state.counters["buffercb_p50_us"] = 1000 * Median(durations.bufferCb);
  state.counters["copy_p50_us"] = 1000 * copy;
  state.counters["added_p50_us"] = 1000 * Median(added);
  state.counters["added_p99_us"] = 1000 * Percentile(added, 99);
  state.counters["added_p50_pct_of_30fps"] = 100 * Median(added) / kFrameTimeAt30Fps;
  state.counters["added_p99_pct_of_30fps"] = 100 * Percentile(added, 99) / kFrameTimeAt30Fps;
  state.counters["other_p50_pct"] = Median(other);
  state.counters["other_p99_pct"] = Percentile(other, 99);
}

// The camera delivers at its frame rate. Halfway between two frames its thread times a reference copy under
// the same conditions as a real one: just woken, with uncached data.
void Paced(benchmark::State& state, const Session& session) {
  const Clip& clip = ClipOf(session.kind);
  ReferencePool reference(session.kind);
  const auto period = std::chrono::duration_cast<Clock::duration>(std::chrono::seconds(1)) / session.fps;
  const int frames = session.frames + kWarmUp;
  for (auto _ : state) {
    CameraSession camera(session.Settings(), static_cast<std::size_t>(frames));
    std::vector<double> copies;
    std::vector<double> late;
    Clock::time_point due = Clock::now() + period;
    for (std::size_t i = 0; i < static_cast<std::size_t>(frames); ++i, due += period) {
      std::this_thread::sleep_until(due - period / 2);
      copies.push_back(reference.MillisecondsToCopy(FrameOf(clip, i + clip.size())));
      std::this_thread::sleep_until(due);
      late.push_back(1000 * Milliseconds(Clock::now() - due));
      camera.Deliver(FrameOf(clip, i));
    }
    const Durations durations(camera.Finish());
    camera.Close();
    state.SetIterationTime(Mean(durations.latency) / 1000);
    ReportLatency(state, durations);
    ReportAdded(state, durations, Median({copies.begin() + kWarmUp, copies.end()}));
    state.counters["timer_late_p50_us"] = Median({late.begin() + kWarmUp, late.end()});
    state.counters["timer_late_p99_us"] = Percentile({late.begin() + kWarmUp, late.end()}, 99);
    state.counters["product_slice_threads"] = DefaultSliceThreads(session.kind.width, session.kind.height);
  }
}

// The camera always has a frame ready, so the frame pool is full and the latency is mostly waiting.
// encoder_idle_pct is the share of time outside the encoder library.
void Unpaced(benchmark::State& state, const Session& session) {
  const Clip& clip = ClipOf(session.kind);
  const int frames = session.frames + kWarmUp;
  for (auto _ : state) {
    CameraSession camera(session.Settings(), static_cast<std::size_t>(frames));
    for (std::size_t i = 0; i < static_cast<std::size_t>(frames); ++i) {
      camera.Deliver(FrameOf(clip, i));
    }
    const std::vector<FrameTimes> times = camera.Finish();
    camera.Close();
    const Durations durations(times);
    const double whole = Milliseconds(times.back().callback - times[kWarmUp - 1].callback);
    state.SetIterationTime(whole / session.frames / 1000);
    ReportLatency(state, durations);
    state.counters["frames_per_second"] = 1000 * session.frames / whole;
    state.counters["ns_per_pixel"] = 1e6 * whole / session.frames / session.kind.width / session.kind.height;
    state.counters["encoder_idle_pct"] = 100 * (1 - Sum(durations.encode) / whole);
  }
}

// Sessions of one frame, delivered as soon as the camera is open. Does not include the time of a real camera
// or of DirectShow.
void Open(benchmark::State& state, const PictureKind& kind) {
  const Clip& clip = ClipOf(kind);
  std::vector<double> openTimes;
  std::vector<double> packetTimes;
  std::vector<double> closeTimes;
  for (auto _ : state) {
    CameraSession camera({kind.width, kind.height, kind.layout, 30, 1}, 1);
    camera.Deliver(FrameOf(clip, openTimes.size()));
    const Clock::duration first = camera.Finish().front().callback - camera.OpenStart();
    camera.Close();
    state.SetIterationTime(Milliseconds(first) / 1000);
    openTimes.push_back(Milliseconds(camera.OpenTime()));
    packetTimes.push_back(Milliseconds(first));
    closeTimes.push_back(Milliseconds(camera.CloseTime()));
  }
  state.counters["open_p50_ms"] = Median(openTimes);
  state.counters["first_packet_p50_ms"] = Median(packetTimes);
  state.counters["first_packet_max_ms"] = Percentile(packetTimes, 100);
  state.counters["close_p50_us"] = 1000 * Median(closeTimes);
  state.counters["close_max_us"] = 1000 * Percentile(closeTimes, 100);
}

using Run = void (*)(benchmark::State&, const Session&);

void Register(const std::string& name, Run run, const Session& session) {
  benchmark::RegisterBenchmark(
      (name + "/" + session.Name()).c_str(),
      [=](benchmark::State& state) { ReportExceptions(state, [&] { run(state, session); }); })
      ->Iterations(1)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
}

void RegisterOpen(const PictureKind& kind) {
  constexpr int kSessions = 20;
  benchmark::RegisterBenchmark(
      ("Open/" + kind.Name()).c_str(),
      [=](benchmark::State& state) { ReportExceptions(state, [&] { Open(state, kind); }); })
      ->Iterations(kSessions)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
}

// Chosen so that every benchmark takes about a second.
int UnpacedFrames(const PictureKind& kind) {
  constexpr int kTotalPixels = 150 * 1280 * 720;
  return std::clamp(kTotalPixels / (kind.width * kind.height), 40, 400);
}

}  // namespace

void RegisterSessionBenchmarks() {
  // Enough for a p99 that is not the maximum.
  constexpr int kFramesAt30Fps = 300;
  for (const PictureKind& kind : PictureKinds()) {
    // The encoder must keep up with the frame rate; otherwise the latency is that of a full queue.
    const bool isHuge = kind.height > 1080;
    for (const int threads : {1, 2}) {
      Register("Paced", &Paced, {kind, threads, isHuge ? 10 : 30, isHuge ? 40 : kFramesAt30Fps});
    }
    if (kind.layout == ColorSpace::kYuy2 && (kind.height == 480 || kind.height == 720)) {
      Register("Paced", &Paced, {kind, 1, 10, 40});
      Register("Paced", &Paced, {kind, 1, 60, kFramesAt30Fps});
    }
    for (const int threads : {1, 2}) {
      Register("Unpaced", &Unpaced, {kind, threads, 30, UnpacedFrames(kind)});
    }
    RegisterOpen(kind);
  }
}

}  // namespace bench
