// Many short sessions in all sizes, with misuse by the host and camera failures in between.
#include <algorithm>
#include <array>
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

constexpr int kOpen = NUVEQ_SERVICE_STATUS_CAMERA_OPEN;
constexpr int kClosed = NUVEQ_SERVICE_STATUS_CAMERA_CLOSED;

constexpr PictureSize kSmall{320, 240};
constexpr PictureSize kMiddle{640, 480};
constexpr PictureSize kSmallJpeg{352, 288};
constexpr PictureSize kLargeJpeg{1280, 720};
constexpr PictureSize kMaxJpeg{1920, 1080};
constexpr PictureSize kUnsupported{200, 100};

std::vector<graph::VideoFormat> Formats() {
  return {ThirtyFps(graph::kYuyv, kSmall), ThirtyFps(graph::kYuyv, kMiddle),
          ThirtyFps(graph::kMjpg, kSmallJpeg), ThirtyFps(graph::kMjpg, kLargeJpeg),
          ThirtyFps(graph::kMjpg, kMaxJpeg)};
}

// Mostly small sizes; every size occurs within kSizePeriod rounds.
constexpr std::uint64_t kSizePeriod = 60;
PictureSize SizeOf(std::uint64_t round) {
  switch (round % kSizePeriod) {
    case 14:
    case 44:
      return kLargeJpeg;
    case 29:
      return kMaxJpeg;
    default:
      break;
  }
  switch (round % 10) {
    case 3:
      return kMiddle;
    case 7:
      return kSmallJpeg;
    default:
      return kSmall;
  }
}

enum class Variation {
  kOpenTwice,
  kQueryWhileOpen,
  kCloseFromAnotherThread,
  kWithoutListener,
  kCloseAtOnce,
  kCloseTwice,
  kDisconnectCamera,
  kOpenUnsupportedSize,
  kRejectPackets,
  kCloseWhileCameraWaits,
  kReloadLibrary,
  kNone
};

// Every third round has a variation. Its period differs from that of the sizes, so their combinations change.
Variation VariationOf(std::uint64_t round) {
  constexpr auto kVariations = static_cast<std::uint64_t>(Variation::kNone);
  return round % 3 == 0 ? static_cast<Variation>(round / 3 % kVariations) : Variation::kNone;
}

class Rounds {
 public:
  std::string Run(std::uint64_t rounds, long idleThreads);

 private:
  void Round(std::uint64_t number);
  Expectations Expected(std::uint64_t number, Variation variation) const;
  void Session(std::uint64_t number, Variation variation);
  void ApplyVariation(std::uint64_t number, Variation variation);
  void CloseSession(Variation variation);
  void CheckResult(const SessionResult& result, Variation variation, bool awaitsAllPackets);

  const std::shared_ptr<simulated::SimulatedPc> m_pc = UseLaptop(Formats());
  SoakCamera m_camera;
  std::uint64_t m_opens = 0;  // opens that queried the format of the camera
  std::uint64_t m_frames = 0;
  std::uint64_t m_packets = 0;
};

// Long enough for every size and every variation, if there are enough rounds.
std::uint64_t WarmUpRounds(std::uint64_t rounds) {
  const std::uint64_t minimum = std::clamp<std::uint64_t>(rounds / 2, 1, kSizePeriod);
  return std::max(rounds / 20, minimum);
}

std::string Rounds::Run(std::uint64_t rounds, long idleThreads) {
  const Progress progress("rounds", rounds);
  const std::uint64_t objects = com::LiveObjects();
  const std::uint64_t blocks = com::LiveTaskBlocks();
  const std::uint64_t warmUp = WarmUpRounds(rounds);
  const std::uint64_t step = std::max<std::uint64_t>(rounds / 20, 1);
  FootprintMonitor monitor("round");
  const auto begin = std::chrono::steady_clock::now();
  for (std::uint64_t number = 1; number <= rounds; ++number) {
    try {
      Round(number);
      WaitForThreadCount(idleThreads);
      if (com::LiveObjects() != objects || com::LiveTaskBlocks() != blocks + m_opens) {
        throw SoakFailure(std::to_string(com::LiveObjects()) + " COM objects instead of " +
                          std::to_string(objects) + " and " + std::to_string(com::LiveTaskBlocks()) +
                          " blocks of task memory instead of " + std::to_string(blocks + m_opens) +
                          " are alive");
      }
    } catch (const std::runtime_error& failure) {
      throw SoakFailure("round " + std::to_string(number) + ": " + failure.what());
    }
    if (number == warmUp) {
      monitor.TakeBaseline(number);
    } else if (number > warmUp) {
      monitor.Check(number, number % step == 0 || number == rounds ? Detail::kFull : Detail::kQuick);
    }
    progress.SetDone(number);
  }
  const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  m_camera.Unload();
  return "rounds: " + std::to_string(rounds) + "; " + std::to_string(m_frames) + " frames delivered, " +
         std::to_string(m_packets) + " packets, all pictures in order; " +
         std::to_string(m_frames - m_packets) + " frames discarded by closing; " +
         std::to_string(static_cast<std::uint64_t>(seconds)) + " s\n" + monitor.Summary();
}

void Rounds::Round(std::uint64_t number) {
  const Variation variation = VariationOf(number);
  if (variation == Variation::kReloadLibrary) {
    m_camera.Unload();
    m_camera.Load();
  }
  m_camera.Query(static_cast<std::uint32_t>(Formats().size()));
  if (variation == Variation::kOpenUnsupportedSize) {
    m_camera.Open(kUnsupported, NUVEQ_CAMERA_GRAPH_FAILED);
    m_camera.Close(0);
    ++m_opens;
  }
  m_camera.SetListener(variation != Variation::kWithoutListener);
  Session(number, variation);
}

Expectations Rounds::Expected(std::uint64_t number, Variation variation) const {
  Expectations expected;
  expected.size = SizeOf(number);
  expected.awaitsAllPackets = number % 2 == 0;
  if (variation == Variation::kOpenTwice) {
    expected.ids.emplace_back("00");
  } else if (variation == Variation::kWithoutListener) {
    expected.awaitsAllPackets = false;
  } else if (variation == Variation::kRejectPackets) {
    expected.dataResult = 7;
  } else if (variation == Variation::kCloseWhileCameraWaits) {
    // The first packet blocks the encoder thread until the pool is full and the camera thread waits.
    expected.onPacket = [](std::uint64_t packet) {
      while (packet == 0 && graph::LatestStreamStats().delivered < 1 + kPoolFrames + 1) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
      }
    };
  }
  return expected;
}

void Rounds::Session(std::uint64_t number, Variation variation) {
  const Expectations expected = Expected(number, variation);
  SoakHost::Get().Begin(expected);
  m_camera.Open(expected.size);
  ++m_opens;
  if (variation != Variation::kCloseAtOnce) {
    SoakHost::Get().WaitForPackets(1 + number % 4);
    ApplyVariation(number, variation);
  }
  CloseSession(variation);
  CheckResult(SoakHost::Get().End(), variation, expected.awaitsAllPackets);
}

void Rounds::ApplyVariation(std::uint64_t number, Variation variation) {
  switch (variation) {
    case Variation::kOpenTwice:
      m_camera.Open(kUnsupported, NUVEQ_CAMERA_ALREADY_OPEN, "00");
      break;
    case Variation::kQueryWhileOpen:
      m_camera.Query(static_cast<std::uint32_t>(Formats().size()));
      SoakHost::Get().WaitForPackets(3 + number % 4);
      break;
    case Variation::kDisconnectCamera:
      m_pc->RemoveBuiltInCamera();
      while (!graph::LatestStreamStats().isDisconnected) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
      }
      break;
    default:
      break;
  }
}

void Rounds::CloseSession(Variation variation) {
  if (variation == Variation::kCloseFromAnotherThread) {
    std::string message;
    std::thread([&] {
      try {
        m_camera.Close();
      } catch (const std::runtime_error& failure) {
        message = failure.what();
      }
    }).join();
    if (!message.empty()) {
      throw SoakFailure(message);
    }
    return;
  }
  m_camera.Close();
  if (variation == Variation::kCloseTwice) {
    m_camera.Close(0);
  } else if (variation == Variation::kDisconnectCamera) {
    m_pc->ReturnBuiltInCamera();
  }
}

// Closing may discard the frames in the pool.
void Rounds::CheckResult(const SessionResult& result, Variation variation, bool awaitsAllPackets) {
  const std::uint64_t discarded = result.frames - result.packets;
  if (result.packets > result.frames || discarded > (awaitsAllPackets ? 0 : kPoolFrames)) {
    throw SoakFailure("the camera delivered " + std::to_string(result.frames) +
                      " frames and the host received " + std::to_string(result.packets) + " packets");
  }
  std::vector<int> reports{kOpen, kClosed};
  if (variation == Variation::kOpenTwice) {
    reports = {kOpen, kOpen, kClosed};
  } else if (variation == Variation::kWithoutListener) {
    reports.clear();
  }
  if (result.statuses != reports) {
    throw SoakFailure(std::to_string(result.statuses.size()) +
                      " status reports instead of those of an open and a close");
  }
  m_frames += result.frames;
  m_packets += result.packets;
}

}  // namespace

std::string RunRounds(std::uint64_t rounds, long idleThreads) { return Rounds().Run(rounds, idleThreads); }

}  // namespace soak
