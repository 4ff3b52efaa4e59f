// One long session: every frame produces a packet, and no resource grows.
#include <algorithm>
#include <chrono>
#include <thread>

#include "Footprint.h"
#include "Phases.h"
#include "Progress.h"
#include "SoakCamera.h"
#include "SoakFailure.h"
#include "SoakHost.h"
#include "com/Com.h"
#include "devices/DeviceProvider.h"
#include "graph/StreamStats.h"

namespace soak {
namespace {

// Number of checks per run; the first one takes the baseline.
constexpr std::uint64_t kChecks = 20;

// Waits until the pipeline is blocked behind the data callback of the given packet: the frame of that packet
// has returned its buffer, five frames are queued, and the camera thread waits for a buffer with the next
// one.
void WaitForFullPool(std::uint64_t packet) {
  while (graph::LatestStreamStats().delivered != packet + 1 + kPoolFrames + 1) {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  // A delivered frame is counted slightly before it reaches the pool.
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

// Checks the footprint inside the data callback, which blocks the whole pipeline.
class PacketObserver {
 public:
  explicit PacketObserver(std::uint64_t frames)
      : m_step(std::max<std::uint64_t>(frames / kChecks, 1)), m_last(frames), m_progress("frames", frames) {}

  void operator()(std::uint64_t packet) {
    const std::uint64_t count = packet + 1;
    if (count <= m_last && count % m_step == 0) {
      WaitForFullPool(packet);
      if (monitor.HasBaseline()) {
        monitor.Check(count, Detail::kFull);
      } else {
        monitor.TakeBaseline(count);
      }
    }
    m_progress.SetDone(count);
  }

  FootprintMonitor monitor{"frame"};

 private:
  const std::uint64_t m_step;
  const std::uint64_t m_last;  // later packets arrive while the session closes
  const Progress m_progress;
};

void CheckResult(const SessionResult& result, std::uint64_t frames) {
  const graph::StreamStats stats = graph::LatestStreamStats();
  if (result.packets < frames || result.packets != result.frames || stats.undecodable != 0 ||
      stats.missed != 0 || stats.tooShort != 0 || stats.damaged != 0) {
    throw SoakFailure("the camera delivered " + std::to_string(result.frames) +
                      " frames and the host received " + std::to_string(result.packets) +
                      " packets, expected at least " + std::to_string(frames));
  }
}

}  // namespace

std::shared_ptr<simulated::SimulatedPc> UseLaptop(const std::vector<graph::VideoFormat>& formats) {
  simulated::SimulatedPcSettings settings;
  settings.pace = simulated::Pace::kUnpaced;
  settings.formats = formats;
  auto pc = std::make_shared<simulated::SimulatedPc>(settings);
  devices::SetDeviceProvider(pc);
  return pc;
}

graph::VideoFormat ThirtyFps(std::uint32_t fourCc, PictureSize size) {
  return {fourCc, size.width, size.height, 10'000'000 / 30};
}

std::string RunFrames(std::uint64_t frames) {
  constexpr PictureSize size{320, 240};
  UseLaptop({ThirtyFps(graph::kYuyv, size)});
  const std::uint64_t objects = com::LiveObjects();
  PacketObserver observer(frames);
  SoakCamera camera;
  camera.Query(1);
  const auto begin = std::chrono::steady_clock::now();
  Expectations expected;
  expected.size = size;
  expected.awaitsAllPackets = true;
  expected.onPacket = std::ref(observer);
  SoakHost::Get().Begin(expected);
  camera.Open(size);
  SoakHost::Get().WaitForPackets(frames);
  camera.Close();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  const SessionResult result = SoakHost::Get().End();
  CheckResult(result, frames);
  camera.Unload();
  if (com::LiveObjects() != objects) {
    throw SoakFailure(std::to_string(com::LiveObjects() - objects) + " COM objects are leaked");
  }
  return "frames: " + std::to_string(result.frames) + " delivered, " + std::to_string(result.packets) +
         " packets, all pictures in order; " + std::to_string(static_cast<std::uint64_t>(seconds)) + " s, " +
         std::to_string(static_cast<std::uint64_t>(static_cast<double>(frames) / seconds)) + " per second\n" +
         observer.monitor.Summary();
}

}  // namespace soak
