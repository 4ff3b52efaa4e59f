#include <algorithm>
#include <ostream>

#include "cli/StopSignals.h"
#include "cli/Text.h"
#include "commands/Commands.h"
#include "picture/PictureDecoder.h"
#include "picture/PngWriter.h"
#include "recording/OutputFile.h"

namespace {

constexpr Clock::duration kNoLimit{0};

void ThrowIfInterrupted(const StopSignals& signals) {
  if (signals.HasArrived()) {
    throw Failure(ExitCode::kEndedEarly, "interrupted before the picture was there; nothing was written");
  }
}

// Decodes until the picture after the skipped ones is there.
void WaitForPicture(const CommandContext& place, const StopSignals& signals, PacketQueue& queue,
                    PictureDecoder& decoder) {
  const auto begin = Clock::now();
  std::uint32_t pictures = 0;
  Packet packet;
  for (;;) {
    ThrowIfInterrupted(signals);
    if (queue.Pop(packet, kPollInterval) == PopResult::kPacket) {
      pictures += decoder.Decode(packet) ? 1U : 0U;
      if (pictures > place.options.skip) {
        return;
      }
      continue;
    }
    const auto now = Clock::now();
    const StreamEnd end = EndOf(
        {.silence = std::min(now - begin, queue.SilentFor(now)), .isDisconnected = IsCameraDisconnected()},
        kNoLimit, place.patience);
    if (end != StreamEnd::kNone) {
      throw Failure(ExitCode::kEndedEarly, CauseText(end, place.patience) + " after " +
                                               std::to_string(pictures) + " of " +
                                               std::to_string(std::uint64_t{place.options.skip} + 1) +
                                               " pictures; nothing was written; " + kAdviceAfterEarlyEnd);
    }
  }
}

}  // namespace

void RunSnapshot(const CommandContext& place) {
  const StopSignals signals;
  if (place.options.output == "-" && place.console.isOutTerminal) {
    throw Failure(ExitCode::kUsage,
                  "a terminal cannot show the picture; pipe it on, or choose a file with -o");
  }
  OutputFile file(place.options.output, signals);
  if (file.IsSameAs(place.options.clip)) {
    throw Failure(ExitCode::kUsage, "the picture would overwrite the clip; choose another file with -o");
  }
  PictureDecoder decoder;
  const CameraRequest request = ChooseRequest(place.options, place.camera.Query());
  ThrowIfInterrupted(signals);
  PacketQueue queue(kQueueBytes);
  {
    const OpenCamera open(place.camera, request, queue);
    WaitForPicture(place, signals, queue, decoder);
  }
  const Picture picture = decoder.Current();
  file.Write(EncodePng(picture));
  file.Close();
  std::ostream& out = place.options.output == "-" ? place.console.err : place.console.out;
  out << "took " + file.Name() + "\n" + "  size     " + std::to_string(picture.width) + "x" +
             std::to_string(picture.height) + "\n" + "  picture  " +
             std::to_string(std::uint64_t{place.options.skip} + 1) + " of the stream\n"
      << std::flush;
}
