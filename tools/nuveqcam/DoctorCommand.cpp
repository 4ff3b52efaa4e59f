#include <ostream>

#include "Commands.h"
#include "DoctorReport.h"

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

ExitCode RunDoctor(const Workplace& place) {
  const LibraryAnswer answer = AskLibrary(place.camera);
  const PcSurvey pc = SurveyPc();
  const DoctorReport report = Conclude(pc, answer);
  place.console.out << (place.options.wantsJson ? DoctorJson(pc, answer, report) : DoctorText(pc, report));
  return report.code;
}
