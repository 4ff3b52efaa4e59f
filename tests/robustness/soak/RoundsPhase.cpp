// Many short sessions in all sizes, with what hosts and cameras do in between.
#include <algorithm>
#include <array>
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

constexpr int kOpen = NUVEQ_SERVICE_STATUS_CAMERA_OPEN;
constexpr int kClosed = NUVEQ_SERVICE_STATUS_CAMERA_CLOSED;

constexpr PictureSize kSmall{320, 240};
constexpr PictureSize kMiddle{640, 480};
constexpr PictureSize kSmallJpeg{352, 288};
constexpr PictureSize kLargeJpeg{1280, 720};
constexpr PictureSize kMaxJpeg{1920, 1080};
constexpr PictureSize kNotOffered{200, 100};

std::vector<graph::VideoFormat> Formats() {
  return {ThirtyFps(graph::kYuyv, kSmall), ThirtyFps(graph::kYuyv, kMiddle),
          ThirtyFps(graph::kMjpg, kSmallJpeg), ThirtyFps(graph::kMjpg, kLargeJpeg),
          ThirtyFps(graph::kMjpg, kMaxJpeg)};
}

// Mostly small ones, every size within kSizes rounds.
constexpr std::uint64_t kSizes = 60;
PictureSize SizeOf(std::uint64_t round) {
  switch (round % kSizes) {
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
  kLoseTheCamera,
  kAskForWhatIsNotOffered,
  kRefuseThePackets,
  kCloseWhileTheCameraWaits,
  kReloadTheLibrary,
  kNone
};

// Every third round has one; with the sizes they meet in ever new pairs.
Variation VariationOf(std::uint64_t round) {
  constexpr auto kVariations = static_cast<std::uint64_t>(Variation::kNone);
  return round % 3 == 0 ? static_cast<Variation>(round / 3 % kVariations) : Variation::kNone;
}

class Rounds {
 public:
  explicit Rounds(Progress& progress) : m_progress(progress) {}

  std::string Run(std::uint64_t rounds, long threadsAtRest);

 private:
  void Round(std::uint64_t number);
  Expectations Expected(std::uint64_t number, Variation variation) const;
  void Session(std::uint64_t number, Variation variation);
  void InSession(std::uint64_t number, Variation variation);
  void CloseSession(Variation variation);
  void Account(const SessionResult& result, Variation variation, bool takesAll);

  Progress& m_progress;
  const std::shared_ptr<simulated::SimulatedPc> m_pc = UseLaptop(Formats());
  Camera m_camera;
  std::uint64_t m_opens = 0;  // that got as far as the camera's format
  std::uint64_t m_frames = 0;
  std::uint64_t m_packets = 0;
};

// Every size and every variation has been there once, if there are rounds enough.
std::uint64_t WarmUp(std::uint64_t rounds) {
  const std::uint64_t least = std::clamp<std::uint64_t>(rounds / 2, 1, kSizes);
  return std::max(rounds / 20, least);
}

std::string Rounds::Run(std::uint64_t rounds, long threadsAtRest) {
  m_progress.Begin("rounds", rounds);
  const std::uint64_t objects = com::LiveObjects();
  const std::uint64_t blocks = com::LiveTaskBlocks();
  const std::uint64_t warmUp = WarmUp(rounds);
  const std::uint64_t step = std::max<std::uint64_t>(rounds / 20, 1);
  Flatness flatness("round");
  const auto begin = std::chrono::steady_clock::now();
  for (std::uint64_t number = 1; number <= rounds; ++number) {
    try {
      Round(number);
      AwaitThreads(threadsAtRest);
      if (com::LiveObjects() != objects || com::LiveTaskBlocks() != blocks + m_opens) {
        throw SoakFailure(std::to_string(com::LiveObjects()) + " objects instead of " +
                          std::to_string(objects) + " and " + std::to_string(com::LiveTaskBlocks()) +
                          " blocks instead of " + std::to_string(blocks + m_opens) + " stay alive");
      }
    } catch (const SoakFailure& failure) {
      throw SoakFailure("round " + std::to_string(number) + ": " + failure.what());
    }
    if (number == warmUp) {
      flatness.TakeBaseline(number);
    } else if (number > warmUp) {
      flatness.Check(number, number % step == 0 || number == rounds ? Look::kWhole : Look::kGlance);
    }
    m_progress.SetDone(number);
  }
  const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  m_camera.Unload();
  return "rounds: " + std::to_string(rounds) + "; " + std::to_string(m_frames) + " frames delivered, " +
         std::to_string(m_packets) + " packets, each picture in its place; the last " +
         std::to_string(m_frames - m_packets) + " frames discarded by closing; " +
         std::to_string(static_cast<std::uint64_t>(seconds)) + " s\n" + flatness.Summary();
}

void Rounds::Round(std::uint64_t number) {
  const Variation variation = VariationOf(number);
  if (variation == Variation::kReloadTheLibrary) {
    m_camera.Unload();
    m_camera.Load();
  }
  m_camera.Query(static_cast<std::uint32_t>(Formats().size()));
  if (variation == Variation::kAskForWhatIsNotOffered) {
    m_camera.Open(kNotOffered, NUVEQ_CAMERA_GRAPH_FAILED);
    m_camera.Close(0);
    ++m_opens;
  }
  m_camera.Listen(variation != Variation::kWithoutListener);
  Session(number, variation);
}

Expectations Rounds::Expected(std::uint64_t number, Variation variation) const {
  Expectations expected;
  expected.size = SizeOf(number);
  expected.takesAll = number % 2 == 0;
  if (variation == Variation::kOpenTwice) {
    expected.ids.emplace_back("00");
  } else if (variation == Variation::kWithoutListener) {
    expected.takesAll = false;
  } else if (variation == Variation::kRefuseThePackets) {
    expected.answer = 7;
  } else if (variation == Variation::kCloseWhileTheCameraWaits) {
    // The first packet keeps the encoder thread until the pool is full and the camera's thread waits.
    expected.inPacket = [](std::uint64_t packet) {
      while (packet == 0 && graph::LatestStreamStats().delivered < 1 + kPool + 1) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
      }
    };
  }
  return expected;
}

void Rounds::Session(std::uint64_t number, Variation variation) {
  const Expectations expected = Expected(number, variation);
  Host::Get().Begin(expected);
  m_camera.Open(expected.size);
  ++m_opens;
  if (variation != Variation::kCloseAtOnce) {
    Host::Get().WaitForPackets(1 + number % 4);
    InSession(number, variation);
  }
  CloseSession(variation);
  Account(Host::Get().End(), variation, expected.takesAll);
}

void Rounds::InSession(std::uint64_t number, Variation variation) {
  switch (variation) {
    case Variation::kOpenTwice:
      m_camera.Open(kNotOffered, NUVEQ_CAMERA_ALREADY_OPEN, "00");
      break;
    case Variation::kQueryWhileOpen:
      m_camera.Query(static_cast<std::uint32_t>(Formats().size()));
      Host::Get().WaitForPackets(3 + number % 4);
      break;
    case Variation::kLoseTheCamera:
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
    std::string fault;
    std::thread([&] {
      try {
        m_camera.Close();
      } catch (const SoakFailure& failure) {
        fault = failure.what();
      }
    }).join();
    if (!fault.empty()) {
      throw SoakFailure(fault);
    }
    return;
  }
  m_camera.Close();
  if (variation == Variation::kCloseTwice) {
    m_camera.Close(0);
  } else if (variation == Variation::kLoseTheCamera) {
    m_pc->ReturnBuiltInCamera();
  }
}

// The frames that have no packet are the last ones, which closing found in the pool.
void Rounds::Account(const SessionResult& result, Variation variation, bool takesAll) {
  const std::uint64_t discarded = result.frames - result.packets;
  if (result.packets > result.frames || discarded > (takesAll ? 0 : kPool)) {
    throw SoakFailure("the camera has delivered " + std::to_string(result.frames) + " frames, the host got " +
                      std::to_string(result.packets) + " packets");
  }
  std::vector<int> reports{kOpen, kClosed};
  if (variation == Variation::kOpenTwice) {
    reports = {kOpen, kOpen, kClosed};
  } else if (variation == Variation::kWithoutListener) {
    reports.clear();
  }
  if (result.statuses != reports) {
    throw SoakFailure("there were " + std::to_string(result.statuses.size()) +
                      " reports, not those of an open and a close");
  }
  m_frames += result.frames;
  m_packets += result.packets;
}

}  // namespace

std::string RunRounds(std::uint64_t rounds, long threadsAtRest, Progress& progress) {
  return Rounds(progress).Run(rounds, threadsAtRest);
}
