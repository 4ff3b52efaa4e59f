// The default picture size: the best one that delivers the wanted rate, judged by the first packets.
//
// A camera's lists of sizes and rates do not tell which rate a size has, and a camera may deliver less than
// it lists. See docs/decisions/0032-judge-the-default-size-by-its-first-packets.md.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "camera/Capabilities.h"
#include "recording/PacketQueue.h"

namespace nuveqcam {

// The sizes in the order in which they are the default: sizes up to 1280x720, the largest first, then the
// others, the smallest first.
std::vector<Size> SizesByPreference(std::vector<Size> sizes);

// The sizes that a command may use, at one rate.
struct SizePlan {
  std::vector<Size> sizes;  // in order of preference
  std::uint32_t fps = 0;    // to request, in whole frames per second
  double wantedFps = 0;     // the requested rate, or the highest rate of the camera if that is lower
  bool isListed = false;    // the driver lists the wanted rate, or nearly, for all of the sizes
};

// A plan with all sizes of the camera, or only with those for which the driver lists the wanted rate if it is
// known. sizes is empty if the camera has none.
SizePlan PlanSizes(const Capabilities& camera, std::uint32_t fps);

enum class StartJudgement { kUndecided, kFastEnough, kTooSlow };

struct StartRate {
  StartJudgement judgement = StartJudgement::kUndecided;
  double fps = 0;  // roughly, as far as it is known
};

// A short look rejects a clearly slow stream early, and may reject one that is only delayed.
enum class StartLook { kFull, kShort };

// Judges a stream by the arrivals of its first packets. Decides after about half a second at the latest if
// the wanted rate is 15 frames per second or more. A stream is fast enough from three quarters of the wanted
// rate on: the judgement must tolerate short delays, and a camera that delivers 25 of 30 frames per second is
// not worth a smaller picture.
StartRate JudgeStart(std::span<const Clock::time_point> arrivals, Clock::time_point now, double wantedFps,
                     StartLook look = StartLook::kFull);

// Goes through the sizes of a plan until one is fast enough.
//
// After the first size, the smallest one is tried if the driver lists the rate for both: if that is slow as
// well, the cause is probably not the size but for example dim light. The other sizes then get short looks,
// which the owner ends when they take too long. In both cases they are tried in order of preference. If none
// is fast enough, the fastest one is used, or the preferred one of several that are about equally fast.
class SizeSearch {
 public:
  // The plan must have a size.
  explicit SizeSearch(SizePlan plan);

  // The size to open.
  const Size& Current() const { return m_plan.sizes[m_current]; }
  // True while the current size is to be judged. False if there is no alternative to it, or if the wanted
  // rate is so low that a judgement would take more than half a second.
  bool IsOpenEnded() const { return !m_isOver; }

  // How to judge the current size.
  StartLook Look() const { return m_look; }
  // Ends a search that only needs short looks. The fastest size so far becomes the current one.
  void EndShortLooks() { EndWith(FastestIndex()); }

  // The judgement of the current size. They may change the current size and end the search.
  void NoteFastEnough();
  void NoteTooSlow(double fps);

  // Human-readable: why the size differs from the preferred one, or that no size is fast enough and whether
  // all were tried; empty if the preferred size is.
  std::string Message() const;

 private:
  enum class State { kUnknown, kFastEnough, kTooSlow };
  struct Candidate {
    State state = State::kUnknown;
    double fps = 0;
  };

  void GoOn();
  void EndWith(std::size_t index);
  std::size_t SmallestIndex() const;
  // The fastest of the slow sizes.
  std::size_t FastestIndex() const;

  SizePlan m_plan;
  std::vector<Candidate> m_candidates;  // of the same index in m_plan.sizes
  std::size_t m_current = 0;
  StartLook m_look = StartLook::kFull;
  bool m_isOver = false;
};

}  // namespace nuveqcam
