#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <new>
#include <thread>

#include "BoundedCopy.h"
#include "Failures.h"
#include "FrameBufQueue.h"
#include "PipelineBenchmarks.h"
#include "Statistics.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

// A queue with one frame and a thread that takes and returns it, like the encoder thread of the library.
class Consumer {
 public:
  Consumer() {
    if (!m_queue.Init(1, 16, 16, ColorSpace::kYuy2)) {
      throw std::bad_alloc();
    }
    m_thread = std::thread([this] {
      while (VideoFrame* const frame = m_queue.GetDataBuffer()) {
        m_taken = Clock::now();
        m_queue.PutFreeBuffer(frame);
      }
    });
  }
  Consumer(const Consumer&) = delete;
  Consumer& operator=(const Consumer&) = delete;
  ~Consumer() {
    m_queue.Stop();
    m_thread.join();
  }

  // Returns the time from the put on this thread to the end of the get on the other one.
  Clock::duration HandOver() {
    VideoFrame* const frame = m_queue.GetFreeBuffer();
    const Clock::time_point start = Clock::now();
    m_queue.PutDataBuffer(frame);
    // Synchronises with the other thread, which wrote m_taken.
    m_queue.PutFreeBuffer(m_queue.GetFreeBuffer());
    return m_taken - start;
  }

 private:
  FrameBufQueue m_queue;
  Clock::time_point m_taken;
  std::thread m_thread;
};

// pause_ms: idle time of the other thread before each hand-over, as between frames.
void HandOver(benchmark::State& state) {
  const std::chrono::milliseconds pause(state.range(0));
  Consumer consumer;
  std::vector<double> times;
  for (auto _ : state) {
    if (pause.count() != 0) {
      std::this_thread::sleep_for(pause);
    }
    const Clock::duration time = consumer.HandOver();
    times.push_back(1000 * Milliseconds(time));
    state.SetIterationTime(std::chrono::duration<double>(time).count());
  }
  state.counters["hand_over_p50_us"] = Median(times);
  state.counters["hand_over_p99_us"] = Percentile(times, 99);
}

// The queue operations on a single thread: the cost of a hand-over without waking a thread.
void HandOverOnOneThread(benchmark::State& state) {
  FrameBufQueue queue;
  if (!queue.Init(5, 16, 16, ColorSpace::kYuy2)) {
    throw std::bad_alloc();
  }
  for (auto _ : state) {
    queue.PutDataBuffer(queue.GetFreeBuffer());
    queue.PutFreeBuffer(queue.GetDataBuffer());
  }
  queue.Stop();
}

// BoundedCopy and memcpy in turn, into a pool of five frames like that of the library. The reported time is
// that of BoundedCopy.
void PoolCopy(benchmark::State& state, const PictureKind& kind) {
  const Clip& clip = ClipOf(kind);
  std::vector<VideoFrame> pool(5);
  for (VideoFrame& buffer : pool) {
    if (!buffer.AllocBuffer(static_cast<std::uint32_t>(kind.width), static_cast<std::uint32_t>(kind.height),
                            kind.layout)) {
      throw std::bad_alloc();
    }
    std::memset(buffer.data, 1, buffer.size);
  }
  std::vector<double> bounded;
  std::vector<double> plain;
  std::size_t number = 0;
  for (auto _ : state) {
    const VideoFrame& first = FrameOf(clip, number);
    VideoFrame& pooled = pool[number++ % pool.size()];
    const Clock::time_point start = Clock::now();
    benchmark::DoNotOptimize(BoundedCopy(pooled.data, pooled.size, first.data, first.size));
    benchmark::ClobberMemory();
    const Clock::duration time = Clock::now() - start;
    state.SetIterationTime(std::chrono::duration<double>(time).count());
    bounded.push_back(1000 * Milliseconds(time));
    const VideoFrame& second = FrameOf(clip, number);
    VideoFrame& other = pool[number++ % pool.size()];
    const Clock::time_point between = Clock::now();
    std::memcpy(other.data, second.data, second.size);
    benchmark::ClobberMemory();
    plain.push_back(1000 * Milliseconds(Clock::now() - between));
  }
  state.counters["bounded_copy_p50_us"] = Median(bounded);
  state.counters["memcpy_p50_us"] = Median(plain);
  state.counters["of_memcpy_pct"] = 100 * Median(bounded) / Median(plain);
}

}  // namespace

void RegisterPartBenchmarks() {
  benchmark::RegisterBenchmark(
      "HandOver", [](benchmark::State& state) { ReportExceptions(state, [&] { HandOver(state); }); })
      ->ArgName("pause_ms")
      ->Arg(0)
      ->Iterations(20000)
      ->UseManualTime()
      ->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark(
      "HandOver", [](benchmark::State& state) { ReportExceptions(state, [&] { HandOver(state); }); })
      ->ArgName("pause_ms")
      ->Arg(5)
      ->Iterations(200)
      ->UseManualTime()
      ->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("HandOverOnOneThread", [](benchmark::State& state) {
    ReportExceptions(state, [&] { HandOverOnOneThread(state); });
  })->Unit(benchmark::kMicrosecond);
  for (const PictureKind& kind : PictureKinds()) {
    benchmark::RegisterBenchmark(
        ("PoolCopy/" + kind.Name()).c_str(),
        [=](benchmark::State& state) { ReportExceptions(state, [&] { PoolCopy(state, kind); }); })
        ->Iterations(kind.height > 1080 ? 41 : 301)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
  }
}

}  // namespace bench
