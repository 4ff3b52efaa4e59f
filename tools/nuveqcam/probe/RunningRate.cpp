#include "probe/RunningRate.h"

#include <algorithm>

#include "probe/ProbeReport.h"

namespace nuveqcam {
namespace {

// A shorter time is too inaccurate: a single late packet could seem to be a wrong rate.
constexpr std::chrono::seconds kMinTime{2};

// After a longer time without a packet, the rate is that of the past.
constexpr std::chrono::seconds kMaxSilence{1};

}  // namespace

RunningRate JudgeRunningRate(const Capabilities& camera, const CameraRequest& request,
                             std::span<const Clock::time_point> arrivals, Clock::time_point now) {
  RunningRate rate;
  if (arrivals.empty() || arrivals.back() - arrivals.front() < kMinTime ||
      now - arrivals.back() > kMaxSilence) {
    return rate;
  }
  const std::uint32_t highest = OfferedFps(camera, request.size).front();
  SizeResult result;
  result.request = request;
  result.request.fps = std::min(request.fps, highest);
  result.isHighestRate = result.request.fps == highest;
  std::vector<Packet> packets;
  for (const Clock::time_point arrival : arrivals) {
    packets.push_back({{}, arrival});
  }
  result.figures = MeasureStream(packets);
  result.figures.jitterP99.reset();
  rate.delivered = result.figures.fps;
  rate.promised = result.request.fps;
  for (const Finding finding : FindingsOf(result, camera.rates)) {
    rate.findings.push_back({WordFor(finding), FindingText(result, finding), AdviceFor(finding)});
  }
  return rate;
}

}  // namespace nuveqcam
