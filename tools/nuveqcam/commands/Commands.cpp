#include "commands/Commands.h"

#include <exception>
#include <new>
#include <ostream>

namespace nuveqcam {
namespace {

ExitCode RunCommand(const CommandContext& context) {
  switch (context.options.command) {
    case Command::kList:
      RunList(context);
      break;
    case Command::kRecord:
      RunRecord(context);
      break;
    case Command::kSnapshot:
      RunSnapshot(context);
      break;
    case Command::kView:
      RunView(context);
      break;
    case Command::kDoctor:
      return RunDoctor(context);
    case Command::kProbe:
      return RunProbe(context);
    case Command::kNone:
      break;
  }
  return ExitCode::kOk;
}

void PrintFailure(const Console& console, const std::string& text) {
  console.out << std::flush;
  console.err << "nuveqcam: " << text << std::endl;
}

}  // namespace

ExitCode RunTool(const Options& options, const Console& console, const Timeouts& timeouts) {
  try {
    const SystemSession session;
    if (options.isSimulated) {
      UseSimulatedPc(options.clip);
    }
    LibraryLog log(options.isVerbose ? &console.err : nullptr);
    const CameraLibrary library(options.library);
    Camera camera(library, log);
    const ExitCode code = RunCommand({options, console, camera, timeouts});
    if (!console.out.flush()) {
      throw Failure(ExitCode::kCannotWrite,
                    "cannot write to standard output; a file that was written is complete");
    }
    return code;
  } catch (const Failure& failure) {
    PrintFailure(console, failure.what());
    return failure.Code();
  } catch (const std::bad_alloc&) {
    PrintFailure(console, "out of memory; close other programs or choose a smaller size with --size");
  } catch (const std::exception& error) {
    PrintFailure(console, std::string("unexpected failure: ") + error.what() + "; use -v for details");
  }
  return ExitCode::kUnexpected;
}

CameraPlan PlanOnly(const CameraRequest& request) {
  return {request.id, {{request.size}, request.fps, static_cast<double>(request.fps), false}};
}

CameraPlan PlanRequests(const Options& options, const Capabilities& camera) {
  const std::uint32_t fps = options.fps.value_or(ChooseFps(camera.rates));
  if (options.size) {
    return PlanOnly({camera.id, *options.size, fps});
  }
  CameraPlan plan{camera.id, PlanSizes(camera, fps)};
  if (plan.sizes.sizes.empty()) {
    throw Failure(ExitCode::kCannotOpen, "the camera reports no picture sizes; specify one with --size");
  }
  return plan;
}

}  // namespace nuveqcam
