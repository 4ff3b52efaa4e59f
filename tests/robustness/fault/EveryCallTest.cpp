// Every platform call and thread start fails in turn, in every way. The host sees what the failure table
// says, nothing is leaked, and a new session works.
#include "ScenarioTest.h"

namespace fault {

TEST_P(EveryCall, FailsWithDocumentedResult) {
  const auto repeat = [this](Subject subject, const std::string& kind, scripted::Answer answer) {
    RepeatUntilNothingFails(kind, [&](std::uint64_t number) {
      HostRun run;
      const auto begin = [&] { run.BeginToFail({subject, number, GetPersistence(), answer}); };
      const auto end = [&] { run.FailNothing(); };
      RunAndCheck(run, begin, end, answer);
      return run.HasFailed();
    });
  };
  ASSERT_NO_FATAL_FAILURE(repeat(Subject::kCalls, "E_FAIL", scripted::Fails()));
  ASSERT_NO_FATAL_FAILURE(repeat(Subject::kCalls, "E_FAIL with output", scripted::FailsWithOutput()));
  ASSERT_NO_FATAL_FAILURE(repeat(Subject::kCalls, "S_FALSE", scripted::SFalse()));
  ASSERT_NO_FATAL_FAILURE(repeat(Subject::kCalls, "success with null", scripted::SucceedsWithNull()));
  if (GetScenario().name != "Query") {
    repeat(Subject::kThreadStarts, "no thread", scripted::Fails());
  }
}

INSTANTIATE_TEST_SUITE_P(Of, EveryCall, EveryCall::TransientAndPersistent(Scenarios()), EveryCall::NameOf);

}  // namespace fault
