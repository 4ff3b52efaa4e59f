#include <algorithm>
#include <ostream>

#include "cli/StopSignals.h"
#include "cli/Text.h"
#include "commands/Commands.h"
#include "recording/PacketWriter.h"
#include "recording/WriterThread.h"

namespace {

constexpr std::chrono::milliseconds kProgressEvery{200};

using Seconds = std::chrono::duration<double>;

class Recording {
 public:
  Recording(const CommandContext& place, OutputFile& file, const CameraRequest& request)
      : m_place(place),
        m_file(file),
        m_request(request),
        m_kind(KindOfRecording(place.options.output)),
        m_limit(place.options.seconds),
        m_writer(MakePacketWriter(m_kind, file, request.fps)),
        m_thread(m_queue, *m_writer, request.fps) {}

  void Run(const StopSignals& signals) {
    RunCamera(signals);
    // The camera's light is out; from here on the writer may take as long as it needs.
    Finish();
    ReportOutcome();
  }

 private:
  void RunCamera(const StopSignals& signals) {
    m_isInterrupted = signals.HasArrived();
    if (!m_isInterrupted) {
      m_openedAt = Clock::now();
      const OpenCamera open(m_place.camera, m_request, m_queue);
      Wait(signals);
    }
  }

  void Wait(const StopSignals& signals) {
    const Console& console = m_place.console;
    // Log lines would break the progress line, and say more.
    ProgressLine line({console.out, console.err, console.isErrTerminal && !m_place.options.isVerbose});
    const auto begin = Clock::now();
    auto nextProgress = begin;
    while (!m_thread.HasFailed() && !m_queue.HasLoss()) {
      m_isInterrupted = signals.HasArrived();
      if (m_isInterrupted) {
        return;
      }
      const auto now = Clock::now();
      // Not of what has been written: that may wait for its reader for as long as it likes.
      const auto elapsed = now - m_queue.FirstArrival().value_or(now);
      if (m_limit.count() != 0 && elapsed >= m_limit) {
        // The packet that completes the recording must not wait for the output.
        m_queue.SetUnbounded();
      }
      m_end = EndOf(
          {m_queue.ReceivedTime(), std::min(now - begin, m_queue.SilentFor(now)), IsCameraDisconnected()},
          m_limit, m_place.patience);
      if (m_end != StreamEnd::kNone) {
        return;
      }
      const Written written = m_thread.Count();
      if (now >= nextProgress && written.frames > 0) {
        line.Show({Seconds(elapsed).count(), written.frames, written.bytes});
        nextProgress = now + kProgressEvery;
      }
      std::this_thread::sleep_for(kPollInterval);
    }
  }

  void Finish() {
    try {
      m_thread.Finish();
    } catch (const Failure& failure) {
      if (failure.Code() != ExitCode::kCannotWrite || m_thread.Count().frames == 0) {
        throw;
      }
      const char* const left = m_kind == OutputKind::kMp4
                                   ? "; what is there is incomplete and will not play (an .h264 recording "
                                     "plays up to where it ends)"
                                   : "; what is there plays up to where it ends";
      throw Failure(failure.Code(), failure.what() + std::string(left));
    }
  }

  void ReportOutcome() {
    const Written written = m_thread.Count();
    if (m_queue.HasLoss()) {
      throw Failure(
          ExitCode::kUnexpected,
          "no memory for a packet, the recording ends before it; close other programs and try again");
    }
    if (written.frames > 0) {
      Summarise(written);
    }
    if (m_isInterrupted && written.frames == 0) {
      throw Failure(ExitCode::kEndedEarly, "interrupted before the first picture; nothing was written");
    }
    if (m_end == StreamEnd::kDisconnected || m_end == StreamEnd::kSilent) {
      throw Failure(ExitCode::kEndedEarly, CauseText(m_end, m_place.patience) + "; " + AmountText(written) +
                                               "; " + kAdviceAfterEarlyEnd);
    }
  }

  // "recorded 2.53 s of 5 s, complete up to there"
  std::string AmountText(const Written& written) const {
    if (written.frames == 0) {
      return "nothing was written";
    }
    const std::string wanted =
        m_limit.count() != 0 ? " of " + std::to_string(m_limit.count()) + " s" : std::string();
    return "recorded " + Decimal(written.duration.count(), 2) + " s" + wanted + ", complete up to there";
  }

  void Summarise(const Written& written) {
    const double seconds = written.duration.count();
    const double kbits = static_cast<double>(written.bytes) * 8 / 1000 / seconds;
    const double toFirst = Seconds(m_queue.FirstArrival().value_or(m_openedAt) - m_openedAt).count() * 1000;
    // Where the recording itself goes to the standard output, that is no place for a summary.
    std::ostream& out = m_place.options.output == "-" ? m_place.console.err : m_place.console.out;
    out << "recorded " + m_file.Name() + (m_isInterrupted ? " (interrupted)" : "") + "\n" +
               "  request       " + ToText(m_request.size) + ", " + std::to_string(m_request.fps) + " fps\n" +
               "  frames        " + std::to_string(written.frames) + "\n" + "  key frames    " +
               std::to_string(written.keyFrames) + "\n" + "  duration      " + Decimal(seconds, 2) + " s\n" +
               "  bit rate      " + Decimal(kbits, 0) + " kbit/s\n" + "  first packet  " +
               Decimal(toFirst, 0) + " ms after the open request\n"
        << std::flush;
  }

  const CommandContext& m_place;
  OutputFile& m_file;
  const CameraRequest m_request;
  const OutputKind m_kind;
  const std::chrono::seconds m_limit;  // 0: none
  PacketQueue m_queue{kQueueBytes};
  std::unique_ptr<PacketWriter> m_writer;
  WriterThread m_thread;
  Clock::time_point m_openedAt;
  StreamEnd m_end = StreamEnd::kNone;
  bool m_isInterrupted = false;
};

}  // namespace

void RunRecord(const CommandContext& place) {
  const StopSignals signals;
  if (place.options.output == "-" && place.console.isOutTerminal) {
    throw Failure(ExitCode::kUsage,
                  "a terminal cannot show the recording; pipe it on, or choose a file with -o");
  }
  // Before the camera, so that an output that cannot be written is known before the camera's light goes on.
  OutputFile file(place.options.output, signals);
  if (file.IsSameAs(place.options.clip)) {
    throw Failure(ExitCode::kUsage, "the recording would overwrite the clip; choose another file with -o");
  }
  const CameraRequest request = ChooseRequest(place.options, place.camera.Query());
  Recording(place, file, request).Run(signals);
}
