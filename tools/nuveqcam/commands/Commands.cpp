#include "commands/Commands.h"

#include <exception>
#include <new>
#include <ostream>

namespace {

ExitCode RunCommand(const CommandContext& place) {
  switch (place.options.command) {
    case Command::kList:
      RunList(place);
      break;
    case Command::kRecord:
      RunRecord(place);
      break;
    case Command::kSnapshot:
      RunSnapshot(place);
      break;
    case Command::kDoctor:
      return RunDoctor(place);
    case Command::kNone:
      break;
  }
  return ExitCode::kOk;
}

void Report(const Console& console, const std::string& text) {
  console.out << std::flush;
  console.err << "nuveqcam: " << text << std::endl;
}

}  // namespace

ExitCode RunTool(const Options& options, const Console& console, const Timeouts& patience) {
  try {
    const SystemSession session(options.isVerbose);
    if (options.isSimulated) {
      UseSimulatedPc(options.clip);
    }
    LibraryLog log(options.isVerbose ? &console.err : nullptr);
    const CameraLibrary library(options.library);
    Camera camera(library, log);
    const ExitCode code = RunCommand({options, console, camera, patience});
    if (!console.out.flush()) {
      throw Failure(ExitCode::kCannotWrite,
                    "cannot write to the standard output; what went into a file is complete");
    }
    return code;
  } catch (const Failure& failure) {
    Report(console, failure.what());
    return failure.Code();
  } catch (const std::bad_alloc&) {
    Report(console, "no memory; close other programs or choose a smaller size with --size");
  } catch (const std::exception& error) {
    Report(console, std::string("unexpected failure: ") + error.what() + "; see more with -v");
  }
  return ExitCode::kUnexpected;
}

CameraRequest ChooseRequest(const Options& options, const Capabilities& camera) {
  const std::optional<Size> size = options.size ? options.size : ChooseSize(camera.sizes);
  if (!size) {
    throw Failure(ExitCode::kCannotOpen, "the camera names no picture size; give one with --size");
  }
  return {camera.id, *size, options.fps.value_or(ChooseFps(camera.rates))};
}
