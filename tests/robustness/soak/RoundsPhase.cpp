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
#include "graph/StreamStats.h"

namespace {

constexpr int kOpen = NUVEQ_SERVICE_STATUS_CAMERA_OPEN;
constexpr int kClosed = NUVEQ_SERVICE_STATUS_CAMERA_CLOSED;

constexpr PictureSize kSmall{320, 240};
constexpr PictureSize kMiddle{640, 480};
constexpr PictureSize kSmallJpeg{352, 288};
constexpr PictureSize kLargeJpeg{1280, 720};
constexpr PictureSize kGreatestJpeg{1920, 1080};
constexpr PictureSize kNotOffered{200, 100};

std::vector<VideoFormat> Formats() {
  return {ThirtyFps(kYuyv, kSmall), ThirtyFps(kYuyv, kMiddle), ThirtyFps(kMjpg, kSmallJpeg),
          ThirtyFps(kMjpg, kLargeJpeg), ThirtyFps(kMjpg, kGreatestJpeg)};
}

// Mostly small ones, every size within kSizes rounds.
constexpr std::uint64_t kSizes = 60;
PictureSize SizeOf(std::uint64_t round) {
  switch (round % kSizes) {
    case 14:
    case 44:
      return kLargeJpeg;
    case 29:
      return kGreatestJpeg;
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

enum class Twist {
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
Twist TwistOf(std::uint64_t round) {
  constexpr auto kTwists = static_cast<std::uint64_t>(Twist::kNone);
  return round % 3 == 0 ? static_cast<Twist>(round / 3 % kTwists) : Twist::kNone;
}

class Rounds {
 public:
  explicit Rounds(Progress& progress) : m_progress(progress) {}

  std::string Run(std::uint64_t rounds, long threadsAtRest);

 private:
  void Round(std::uint64_t number);
  Expectations Expected(std::uint64_t number, Twist twist) const;
  void Session(std::uint64_t number, Twist twist);
  void InSession(std::uint64_t number, Twist twist);
  void CloseSession(Twist twist);
  void Account(const SessionResult& result, Twist twist, bool takesAll);

  Progress& m_progress;
  const std::shared_ptr<SimulatedPc> m_pc = UseLaptop(Formats());
  Camera m_camera;
  std::uint64_t m_opens = 0;  // that got as far as the camera's format
  std::uint64_t m_frames = 0;
  std::uint64_t m_packets = 0;
};

// Every size and every twist has been there once, if there are rounds enough.
std::uint64_t WarmUp(std::uint64_t rounds) {
  const std::uint64_t least = std::clamp<std::uint64_t>(rounds / 2, 1, kSizes);
  return std::max(rounds / 20, least);
}

std::string Rounds::Run(std::uint64_t rounds, long threadsAtRest) {
  m_progress.Begin("rounds", rounds);
  const std::uint64_t objects = LiveObjects();
  const std::uint64_t blocks = LiveTaskBlocks();
  const std::uint64_t warmUp = WarmUp(rounds);
  const std::uint64_t step = std::max<std::uint64_t>(rounds / 20, 1);
  Flatness flatness("round");
  const auto begin = std::chrono::steady_clock::now();
  for (std::uint64_t number = 1; number <= rounds; ++number) {
    try {
      Round(number);
      AwaitThreads(threadsAtRest);
      if (LiveObjects() != objects || LiveTaskBlocks() != blocks + m_opens) {
        throw SoakFailure(std::to_string(LiveObjects()) + " objects instead of " + std::to_string(objects) +
                          " and " + std::to_string(LiveTaskBlocks()) + " blocks instead of " +
                          std::to_string(blocks + m_opens) + " stay alive");
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
  const Twist twist = TwistOf(number);
  if (twist == Twist::kReloadTheLibrary) {
    m_camera.Unload();
    m_camera.Load();
  }
  m_camera.Query(static_cast<std::uint32_t>(Formats().size()));
  if (twist == Twist::kAskForWhatIsNotOffered) {
    m_camera.Open(kNotOffered, NUVEQ_CAMERA_GRAPH_FAILED);
    m_camera.Close(0);
    ++m_opens;
  }
  m_camera.Listen(twist != Twist::kWithoutListener);
  Session(number, twist);
}

Expectations Rounds::Expected(std::uint64_t number, Twist twist) const {
  Expectations expected;
  expected.size = SizeOf(number);
  expected.takesAll = number % 2 == 0;
  if (twist == Twist::kOpenTwice) {
    expected.ids.emplace_back("00");
  } else if (twist == Twist::kWithoutListener) {
    expected.takesAll = false;
  } else if (twist == Twist::kRefuseThePackets) {
    expected.answer = 7;
  } else if (twist == Twist::kCloseWhileTheCameraWaits) {
    // The first packet keeps the encoder thread until the pool is full and the camera's thread waits.
    expected.inPacket = [](std::uint64_t packet) {
      while (packet == 0 && LatestStreamCounters().delivered < 1 + kPool + 1) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
      }
    };
  }
  return expected;
}

void Rounds::Session(std::uint64_t number, Twist twist) {
  const Expectations expected = Expected(number, twist);
  Host::Get().Begin(expected);
  m_camera.Open(expected.size);
  ++m_opens;
  if (twist != Twist::kCloseAtOnce) {
    Host::Get().WaitForPackets(1 + number % 4);
    InSession(number, twist);
  }
  CloseSession(twist);
  Account(Host::Get().End(), twist, expected.takesAll);
}

void Rounds::InSession(std::uint64_t number, Twist twist) {
  switch (twist) {
    case Twist::kOpenTwice:
      m_camera.Open(kNotOffered, NUVEQ_CAMERA_ALREADY_OPEN, "00");
      break;
    case Twist::kQueryWhileOpen:
      m_camera.Query(static_cast<std::uint32_t>(Formats().size()));
      Host::Get().WaitForPackets(3 + number % 4);
      break;
    case Twist::kLoseTheCamera:
      m_pc->RemoveBuiltInCamera();
      while (!LatestStreamCounters().isLost) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
      }
      break;
    default:
      break;
  }
}

void Rounds::CloseSession(Twist twist) {
  if (twist == Twist::kCloseFromAnotherThread) {
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
  if (twist == Twist::kCloseTwice) {
    m_camera.Close(0);
  } else if (twist == Twist::kLoseTheCamera) {
    m_pc->ReturnBuiltInCamera();
  }
}

// The frames that have no packet are the last ones, which closing found in the pool.
void Rounds::Account(const SessionResult& result, Twist twist, bool takesAll) {
  const std::uint64_t discarded = result.frames - result.packets;
  if (result.packets > result.frames || discarded > (takesAll ? 0 : kPool)) {
    throw SoakFailure("the camera has delivered " + std::to_string(result.frames) + " frames, the host got " +
                      std::to_string(result.packets) + " packets");
  }
  std::vector<int> reports{kOpen, kClosed};
  if (twist == Twist::kOpenTwice) {
    reports = {kOpen, kOpen, kClosed};
  } else if (twist == Twist::kWithoutListener) {
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
