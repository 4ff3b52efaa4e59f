// One long session: every frame becomes a packet, and nothing grows on the way.
#include <algorithm>
#include <chrono>
#include <thread>

#include "Footprint.h"
#include "Phases.h"
#include "SoakCamera.h"
#include "SoakFailure.h"
#include "SoakHost.h"
#include "com/Com.h"
#include "devices/DeviceProvider.h"
#include "graph/StreamStats.h"

namespace {

// The process is looked at that often over the run; the first time is the baseline.
constexpr std::uint64_t kChecks = 20;

// Returns with the camera's thread waiting for a buffer: one frame has become the packet whose callback this
// is and has given its buffer back, five are queued, the next one waits. Nothing moves then.
void AwaitStandstill(std::uint64_t packet) {
  while (graph::LatestStreamStats().delivered != packet + 1 + kPool + 1) {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  // Counted frames have yet to reach the pool.
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

// Looks at the process inside the data callback, so that the whole pipeline stands still behind it.
class Watch {
 public:
  Watch(std::uint64_t frames, Progress& progress)
      : m_step(std::max<std::uint64_t>(frames / kChecks, 1)), m_last(frames), m_progress(progress) {}

  void operator()(std::uint64_t packet) {
    const std::uint64_t count = packet + 1;
    if (count <= m_last && count % m_step == 0) {
      AwaitStandstill(packet);
      if (flatness.HasBaseline()) {
        flatness.Check(count, Look::kWhole);
      } else {
        flatness.TakeBaseline(count);
      }
    }
    m_progress.SetDone(count);
  }

  Flatness flatness{"frame"};

 private:
  const std::uint64_t m_step;
  const std::uint64_t m_last;  // the session may be closing after it
  Progress& m_progress;
};

void CheckResult(const SessionResult& result, std::uint64_t frames) {
  const graph::StreamStats counters = graph::LatestStreamStats();
  if (result.packets < frames || result.packets != result.frames || counters.undecodable != 0 ||
      counters.missed != 0 || counters.tooShort != 0 || counters.damaged != 0) {
    throw SoakFailure("the camera has delivered " + std::to_string(result.frames) + " frames, the host got " +
                      std::to_string(result.packets) + " packets, of " + std::to_string(frames));
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

std::string RunFrames(std::uint64_t frames, PictureSize size, Progress& progress) {
  UseLaptop({ThirtyFps(graph::kYuyv, size)});
  const std::uint64_t objects = com::LiveObjects();
  progress.Begin("frames", frames);
  Watch watch(frames, progress);
  Camera camera;
  camera.Query(1);
  const auto begin = std::chrono::steady_clock::now();
  Expectations expected;
  expected.size = size;
  expected.takesAll = true;
  expected.inPacket = std::ref(watch);
  Host::Get().Begin(expected);
  camera.Open(size);
  Host::Get().WaitForPackets(frames);
  camera.Close();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  const SessionResult result = Host::Get().End();
  CheckResult(result, frames);
  camera.Unload();
  if (com::LiveObjects() != objects) {
    throw SoakFailure(std::to_string(com::LiveObjects() - objects) + " objects of the platform stay alive");
  }
  return "frames: " + std::to_string(result.frames) + " delivered, " + std::to_string(result.packets) +
         " packets, each picture in its place; " + std::to_string(static_cast<std::uint64_t>(seconds)) +
         " s, " + std::to_string(static_cast<std::uint64_t>(static_cast<double>(frames) / seconds)) +
         " a second\n" + watch.flatness.Summary();
}
