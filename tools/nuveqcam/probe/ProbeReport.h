// The result of a probe: figures for each size, findings, and advice.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "camera/Camera.h"
#include "cli/Failure.h"
#include "probe/AccessUnitChecker.h"
#include "probe/BehaviourChecks.h"
#include "probe/StreamMeasurement.h"

namespace nuveqcam {

// What is remarkable about a measurement.
enum class Finding {
  // Faults: the camera or the library does not keep what it promises.
  kCannotOpen,
  kNoPackets,
  kStopped,       // packets stop, or the camera is disconnected
  kTooSlow,       // more than 10 % below the requested rate
  kTooFast,       // more than 10 % and more than one frame per second above it
  kFaultyPacket,  // not a whole access unit, or a key frame missing or not due
  kOtherPicture,  // the decoded picture has another size
  // Remarks.
  kOtherRate,   // another offered rate instead of a requested one that is not the size's highest
  kFramesLost,  // the platform has counted frames that did not arrive or were damaged
  kJitter,      // the 99th percentile exceeds half an interval
  kSlowStart,   // more than two seconds from an open request to its first packet
};

bool IsFault(Finding finding);
// "tooSlow" etc., as in the JSON output.
const char* WordFor(Finding finding);
// What may help against it, human-readable; empty if that depends on the cause.
const char* AdviceFor(Finding finding);

// The measurement of one size at one rate.
struct SizeResult {
  CameraRequest request;
  std::optional<std::uint32_t> listedFps;  // the highest rate that the driver lists for the size, if known
  bool isHighestRate = true;               // no higher rate is requested for the size
  std::string failure;                     // human-readable: why the camera cannot be opened; empty: it can
  CaptureEnd end = CaptureEnd::kComplete;
  std::optional<StartFigures> start;
  StreamFigures figures;
  AccessUnitSummary units;
  std::optional<Milliseconds> cpuPerFrame;
  std::optional<CaptureCounters> counters;
  std::vector<Finding> findings;
};

// rates are those of the camera, in thousandths of a frame per second.
std::vector<Finding> FindingsOf(const SizeResult& result, const std::vector<std::uint32_t>& rates);

bool HasFault(const SizeResult& result);

// "640x480 at 30 fps delivers 15.0 fps" etc.; empty for a remark that is not about the rate.
std::string FindingText(const SizeResult& result, Finding finding);

struct ProbeReport {
  std::optional<Capabilities> camera;  // nullopt: there is none, or it cannot be read
  std::string name;                    // of the device; empty: not known
  std::string node;
  std::uint32_t seconds = 0;  // duration of each measurement
  std::vector<SizeResult> sizes;
  std::vector<BehaviourResult> checks;
  bool isComplete = false;  // false: interrupted, or the camera was disconnected
};

// The measurement with the best size and rate: without a fault; with at least 90 % of the default rate if
// there is one; then the default size of those. nullptr if every size has a fault.
const SizeResult* FindBest(const ProbeReport& report);

// One to three lines: the best size and rate, what is wrong, and what may help.
std::vector<std::string> ProbeAdvice(const ProbeReport& report);

// kOk, kProbeFault for a fault, or kEndedEarly if there is none but the probe is incomplete.
ExitCode ProbeExitCode(const ProbeReport& report);

std::string ProbeText(const ProbeReport& report);

}  // namespace nuveqcam
