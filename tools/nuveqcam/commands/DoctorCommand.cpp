#include <ostream>

#include "commands/Commands.h"
#include "commands/DoctorReport.h"

namespace {

LibraryAnswer AskLibrary(Camera& camera) {
  LibraryAnswer answer;
  try {
    answer.camera = camera.Query();
  } catch (const Failure& failure) {
    // Why none was taken is what the survey says.
    answer.failure = failure.Code() == ExitCode::kNoCamera ? "" : failure.what();
  }
  return answer;
}

}  // namespace

ExitCode RunDoctor(const CommandContext& place) {
  LibraryAnswer answer = AskLibrary(place.camera);
  DeviceInventory pc = TakeInventory();
  if (!Agree(pc, answer)) {
    // A device came or went in between: what is left of that is over by now.
    answer = AskLibrary(place.camera);
    pc = TakeInventory();
  }
  const DoctorReport report = Conclude(pc, answer);
  place.console.out << (place.options.wantsJson ? DoctorJson(pc, answer, report) : DoctorText(pc, report));
  return report.code;
}
