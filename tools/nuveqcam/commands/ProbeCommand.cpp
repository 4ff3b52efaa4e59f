#include <algorithm>
#include <functional>
#include <ostream>
#include <utility>

#include "cli/StopSignals.h"
#include "cli/Text.h"
#include "commands/Commands.h"
#include "commands/Json.h"
#include "probe/BehaviourChecks.h"
#include "probe/ProbeReport.h"

namespace nuveqcam {
namespace {

// The opens whose times to the first packet are reported. The last one is measured.
constexpr int kTimedOpens = 3;

struct ProbeStep {
  CameraRequest request;
  bool isHighestRate = true;
};

std::vector<ProbeStep> PlanSteps(const Capabilities& camera, bool wantsAllRates) {
  std::vector<ProbeStep> steps;
  for (const Size& size : camera.sizes) {
    const std::vector<std::uint32_t> rates = OfferedFps(camera, size);
    for (const std::uint32_t fps : rates) {
      const bool isHighest = fps == rates.front();
      if (isHighest || wantsAllRates) {
        steps.push_back({{camera.id, size, fps}, isHighest});
      }
    }
  }
  return steps;
}

class Probe {
 public:
  Probe(const CommandContext& context, const StopSignals& signals)
      : m_context(context),
        m_setup{context.camera, signals, context.timeouts},
        // Log lines would break up the progress line.
        m_line({context.console.out, context.console.err,
                context.console.isErrTerminal && !context.options.isVerbose}) {
    m_report.seconds = context.options.probeSeconds;
  }

  const ProbeReport& Run() {
    const Capabilities camera = m_context.camera.Query();
    m_report.camera = camera;
    if (camera.sizes.empty()) {
      throw Failure(ExitCode::kCannotOpen,
                    "the camera reports no picture sizes; use -v to see the library's log");
    }
    for (const CaptureDeviceInfo& device : ListCaptureDevices()) {
      if (device.exclusionReason.empty()) {
        m_report.name = device.name;
        m_report.node = device.node;
        break;
      }
    }
    RunSteps(camera);
    m_line.End();
    return m_report;
  }

  // Without a camera it has no measurements.
  const ProbeReport& Report() const { return m_report; }

 private:
  void RunSteps(const Capabilities& camera) {
    const std::vector<ProbeStep> steps = PlanSteps(camera, m_context.options.wantsAllRates);
    std::size_t done = 0;
    for (const ProbeStep& step : steps) {
      ShowStep(++done, steps.size(),
               "sizes: " + ToText(step.request.size) + ", " + std::to_string(step.request.fps) + " fps");
      if (m_setup.signals.HasArrived() || !MeasureSize(camera, step)) {
        return;
      }
    }
    m_report.isComplete = RunChecks(camera);
  }

  // Returns false if the probe is to end.
  bool MeasureSize(const Capabilities& camera, const ProbeStep& step) {
    SizeResult result;
    result.request = step.request;
    result.listedFps = ListedFps(camera, step.request.size);
    result.isHighestRate = step.isHighestRate;
    std::vector<Clock::duration> starts;
    CapturedStream stream;
    try {
      for (int i = 1; i <= kTimedOpens && IsComplete(stream); ++i) {
        const bool isMeasured = i == kTimedOpens;
        stream = CapturePackets(
            m_setup, step.request,
            {isMeasured ? kMinMeasuredPackets : 1, std::chrono::seconds(isMeasured ? m_report.seconds : 0)});
        if (!stream.packets.empty()) {
          starts.push_back(stream.toFirst);
        }
      }
    } catch (const Failure& failure) {
      result.failure = failure.what();
    }
    Analyze(stream, starts, result);
    result.findings = FindingsOf(result, camera.rates);
    if (stream.end != CaptureEnd::kInterrupted || HasLasted(stream, kMinInterruptedTime)) {
      m_report.sizes.push_back(std::move(result));
    }
    return stream.end != CaptureEnd::kInterrupted && stream.end != CaptureEnd::kDisconnected;
  }

  static void Analyze(const CapturedStream& stream, const std::vector<Clock::duration>& starts,
                      SizeResult& result) {
    result.start = MeasureStarts(starts);
    if (!result.failure.empty()) {
      return;
    }
    result.end = stream.end;
    result.figures = MeasureStream(stream.packets);
    result.cpuPerFrame = stream.cpuPerFrame;
    result.counters = stream.counters;
    AccessUnitChecker checker(result.request.fps);
    for (const Packet& packet : stream.packets) {
      checker.Check(packet);
    }
    result.units = checker.Summary();
  }

  static bool HasLasted(const CapturedStream& stream, Clock::duration time) {
    return !stream.packets.empty() && stream.packets.back().arrival - stream.packets.front().arrival >= time;
  }

  // Returns false if the checks were interrupted.
  bool RunChecks(const Capabilities& camera) {
    const CameraRequest* const request = RequestOfChecks();
    if (request == nullptr) {
      return true;
    }
    BehaviourChecks checks(m_setup, *request, camera);
    const std::vector<BehaviourCheck> all = checks.All();
    for (const BehaviourCheck& check : all) {
      if (m_setup.signals.HasArrived()) {
        return false;
      }
      ShowStep(m_report.checks.size() + 1, all.size(), "checks: " + check.name);
      BehaviourResult result = BehaviourChecks::Run(check);
      if (!m_setup.signals.HasArrived()) {
        m_report.checks.push_back(std::move(result));
      }
    }
    return m_report.checks.size() == all.size();
  }

  // The best size, else the first one that can be opened; null if there is none.
  const CameraRequest* RequestOfChecks() const {
    if (const SizeResult* const best = FindBest(m_report); best != nullptr) {
      return &best->request;
    }
    const auto opened = std::find_if(m_report.sizes.begin(), m_report.sizes.end(),
                                     [](const SizeResult& result) { return result.figures.packets != 0; });
    return opened == m_report.sizes.end() ? nullptr : &opened->request;
  }

  static bool IsComplete(const CapturedStream& stream) { return stream.end == CaptureEnd::kComplete; }

  void ShowStep(std::size_t number, std::size_t count, const std::string& text) {
    m_line.ShowText("probe " + std::to_string(number) + " of " + std::to_string(count) + " " + text);
  }

  static constexpr std::uint64_t kMinMeasuredPackets = 2;
  // An interrupted measurement that is shorter shows nothing.
  static constexpr std::chrono::seconds kMinInterruptedTime{1};

  const CommandContext& m_context;
  const ProbeSetup m_setup;
  ProgressLine m_line;
  ProbeReport m_report;
};

}  // namespace

ExitCode RunProbe(const CommandContext& context) {
  const StopSignals signals;
  const Console& console = context.console;
  const auto print = [&](const ProbeReport& report) {
    console.out << (context.options.wantsJson ? ProbeJson(report) : ProbeText(report));
  };
  Probe probe(context, signals);
  try {
    print(probe.Run());
  } catch (const Failure&) {
    // As with list, "no camera" is a valid result.
    if (context.options.wantsJson && probe.Report().sizes.empty()) {
      print(probe.Report());
    }
    throw;
  }
  if (!probe.Report().isComplete) {
    console.out << std::flush;
    console.err << "nuveqcam: the probe has ended early; the report has what was measured until then"
                << std::endl;
  }
  return ProbeExitCode(probe.Report());
}

}  // namespace nuveqcam
