#include <algorithm>
#include <ostream>

#include "cli/StopSignals.h"
#include "cli/Text.h"
#include "commands/StartedCamera.h"
#include "picture/Picture.h"
#include "picture/Png.h"
#include "recording/OutputFile.h"

namespace nuveqcam {
namespace {

constexpr Clock::duration kNoLimit{0};

void ThrowIfInterrupted(const StopSignals& signals) {
  if (signals.HasArrived()) {
    throw Failure(ExitCode::kEndedEarly, "interrupted before the picture arrived; nothing was written");
  }
}

// Decodes until the first picture after the skipped ones.
void WaitForPicture(const CommandContext& context, const StopSignals& signals, StartedCamera& camera,
                    PictureDecoder& decoder) {
  PacketQueue& queue = camera.Queue();
  const auto begin = camera.OpenedAt();
  std::uint32_t pictures = 0;
  Packet packet;
  for (;;) {
    ThrowIfInterrupted(signals);
    if (queue.Pop(packet, kPollInterval) == PopResult::kPacket) {
      pictures += decoder.Decode(packet) ? 1U : 0U;
      if (pictures > context.options.skip) {
        return;
      }
      continue;
    }
    const auto now = Clock::now();
    const StreamEnd end = DetermineStreamEnd(
        {.idle = std::min(now - begin, queue.IdleTime(now)), .isDisconnected = IsCameraDisconnected()},
        kNoLimit, context.timeouts);
    if (end != StreamEnd::kNone) {
      throw Failure(ExitCode::kEndedEarly, CauseText(end, context.timeouts) + " after " +
                                               std::to_string(pictures) + " of " +
                                               std::to_string(std::uint64_t{context.options.skip} + 1) +
                                               " pictures; nothing was written; " + kAdviceAfterEarlyEnd);
    }
  }
}

}  // namespace

void RunSnapshot(const CommandContext& context) {
  const StopSignals signals;
  if (context.options.output == "-" && context.console.isOutTerminal) {
    throw Failure(ExitCode::kUsage,
                  "a terminal cannot show the picture; pipe it into a program, or choose a file with -o");
  }
  OutputFile file(context.options.output, signals);
  if (file.IsSameAs(context.options.clip)) {
    throw Failure(ExitCode::kUsage, "the picture would overwrite the clip; choose another file with -o");
  }
  PictureDecoder decoder;
  const CameraPlan plan = PlanRequests(context.options, context.camera.Query());
  ThrowIfInterrupted(signals);
  {
    StartedCamera camera(context, plan, [&] { return signals.HasArrived(); });
    WaitForPicture(context, signals, camera, decoder);
  }
  const Picture picture = decoder.Current();
  file.Write(EncodePng(picture));
  file.Close();
  std::ostream& out = context.options.output == "-" ? context.console.err : context.console.out;
  out << "took " + file.Name() + "\n" + "  size     " + std::to_string(picture.width) + "x" +
             std::to_string(picture.height) + "\n" + "  picture  " +
             std::to_string(std::uint64_t{context.options.skip} + 1) + " of the stream\n"
      << std::flush;
}

}  // namespace nuveqcam
