#include <algorithm>
#include <optional>
#include <ostream>
#include <utility>

#include "cli/StopSignals.h"
#include "cli/Text.h"
#include "commands/StartedCamera.h"
#include "recording/PacketWriter.h"
#include "recording/WriterThread.h"

namespace nuveqcam {
namespace {

constexpr std::chrono::milliseconds kProgressInterval{200};

using Seconds = std::chrono::duration<double>;

class Recording {
 public:
  Recording(const CommandContext& context, OutputFile& file, CameraPlan plan)
      : m_context(context),
        m_file(file),
        m_plan(std::move(plan)),
        m_kind(KindOfRecording(context.options.output)),
        m_limit(context.options.seconds),
        m_writer(MakePacketWriter(m_kind, file, m_plan.sizes.fps)) {}

  void Run(const StopSignals& signals) {
    RunCamera(signals);
    // The camera is closed; the writer may take as long as it needs.
    Finish();
    ReportOutcome();
  }

 private:
  void RunCamera(const StopSignals& signals) {
    m_isInterrupted = signals.HasArrived();
    if (!m_isInterrupted) {
      StartedCamera& camera = m_camera.emplace(m_context, m_plan, [&] { return signals.HasArrived(); });
      const WriterThread& thread = m_thread.emplace(camera.Queue(), *m_writer, m_plan.sizes.fps);
      Wait(signals, camera, thread);
      camera.Close();
    }
  }

  void Wait(const StopSignals& signals, StartedCamera& camera, const WriterThread& thread) {
    const Console& console = m_context.console;
    // Log lines would break up the progress line.
    ProgressLine line({console.out, console.err, console.isErrTerminal && !m_context.options.isVerbose});
    PacketQueue& queue = camera.Queue();
    const auto begin = camera.OpenedAt();
    auto nextProgress = begin;
    while (!thread.HasFailed() && !queue.HasLoss()) {
      m_isInterrupted = signals.HasArrived();
      if (m_isInterrupted) {
        return;
      }
      const auto now = Clock::now();
      // Count from the arrival and not from the write, which may wait for a reader indefinitely.
      const auto elapsed = now - queue.FirstArrival().value_or(now);
      if (m_limit.count() != 0 && elapsed >= m_limit) {
        // The packet that completes the recording must not wait for room in the queue.
        queue.SetUnbounded();
      }
      m_end = DetermineStreamEnd(
          {queue.ReceivedTime(), std::min(now - begin, queue.IdleTime(now)), IsCameraDisconnected()}, m_limit,
          m_context.timeouts);
      if (m_end != StreamEnd::kNone) {
        return;
      }
      const WriterStats written = thread.Stats();
      if (now >= nextProgress && written.frames > 0) {
        line.Show({Seconds(elapsed).count(), written.frames, written.bytes});
        nextProgress = now + kProgressInterval;
      }
      std::this_thread::sleep_for(kPollInterval);
    }
  }

  void Finish() {
    try {
      if (m_thread) {
        m_thread->Finish();
      } else {
        m_writer->Finish();
      }
    } catch (const Failure& failure) {
      if (failure.Code() != ExitCode::kCannotWrite || Written().frames == 0) {
        throw;
      }
      const char* const remainder = m_kind == OutputKind::kMp4
                                        ? "; the file is incomplete and cannot be played (an .h264 recording "
                                          "can be played up to its end)"
                                        : "; the recording can be played up to its end";
      throw Failure(failure.Code(), failure.what() + std::string(remainder));
    }
  }

  WriterStats Written() const { return m_thread ? m_thread->Stats() : WriterStats(); }

  void ReportOutcome() {
    const WriterStats written = Written();
    if (m_camera && m_camera->Queue().HasLoss()) {
      throw Failure(
          ExitCode::kUnexpected,
          "out of memory for a packet, the recording ends before it; close other programs and try again");
    }
    if (m_camera && written.frames > 0) {
      PrintSummary(*m_camera, written);
    }
    if (m_isInterrupted && written.frames == 0) {
      throw Failure(ExitCode::kEndedEarly, "interrupted before the first picture; nothing was written");
    }
    if (m_end == StreamEnd::kDisconnected || m_end == StreamEnd::kNoPackets) {
      throw Failure(ExitCode::kEndedEarly, CauseText(m_end, m_context.timeouts) + "; " + AmountText(written) +
                                               "; " + kAdviceAfterEarlyEnd);
    }
  }

  // "recorded 2.53 s of 5 s, complete up to that point"
  std::string AmountText(const WriterStats& written) const {
    if (written.frames == 0) {
      return "nothing was written";
    }
    const std::string wanted =
        m_limit.count() != 0 ? " of " + std::to_string(m_limit.count()) + " s" : std::string();
    return "recorded " + Decimal(written.duration.count(), 2) + " s" + wanted + ", complete up to that point";
  }

  void PrintSummary(const StartedCamera& camera, const WriterStats& written) {
    const CameraRequest& request = camera.Request();
    const double seconds = written.duration.count();
    const double kbits = static_cast<double>(written.bytes) * 8 / 1000 / seconds;
    const auto requested = camera.RequestedAt();
    const double toFirst =
        Seconds(camera.Queue().FirstArrival().value_or(requested) - requested).count() * 1000;
    // Standard output may be the recording itself.
    std::ostream& out = m_context.options.output == "-" ? m_context.console.err : m_context.console.out;
    out << "recorded " + m_file.Name() + (m_isInterrupted ? " (interrupted)" : "") + "\n" +
               "  request       " + ToText(request.size) + ", " + std::to_string(request.fps) + " fps\n" +
               "  frames        " + std::to_string(written.frames) + "\n" + "  key frames    " +
               std::to_string(written.keyFrames) + "\n" + "  duration      " + Decimal(seconds, 2) + " s\n" +
               "  bit rate      " + Decimal(kbits, 0) + " kbit/s\n" + "  first packet  " +
               Decimal(toFirst, 0) + " ms after the open request\n"
        << std::flush;
  }

  const CommandContext& m_context;
  OutputFile& m_file;
  const CameraPlan m_plan;
  const OutputKind m_kind;
  const std::chrono::seconds m_limit;  // 0: none
  std::unique_ptr<PacketWriter> m_writer;
  // Empty if the recording was interrupted before. The camera's queue outlives the thread.
  std::optional<StartedCamera> m_camera;
  std::optional<WriterThread> m_thread;
  StreamEnd m_end = StreamEnd::kNone;
  bool m_isInterrupted = false;
};

}  // namespace

void RunRecord(const CommandContext& context) {
  const StopSignals signals;
  if (context.options.output == "-" && context.console.isOutTerminal) {
    throw Failure(ExitCode::kUsage,
                  "a terminal cannot show the recording; pipe it into a program, or choose a file with -o");
  }
  // Opened before the camera, so that an output error is reported before the camera's light goes on.
  OutputFile file(context.options.output, signals);
  if (file.IsSameAs(context.options.clip)) {
    throw Failure(ExitCode::kUsage, "the recording would overwrite the clip; choose another file with -o");
  }
  Recording(context, file, PlanRequests(context.options, context.camera.Query())).Run(signals);
}

}  // namespace nuveqcam
