// Every platform call and thread start fails in turn, in every way. Results, reports and remaining state
// equal those of the reference model, nothing hangs, and a new session works.
#include "EveryCallTest.h"

#include <gmock/gmock.h>

#include <iostream>

#include "RecordedRun.h"
#include "ReferenceModel.h"

namespace fault {

using support::HostCallbacks;
using support::Persistence;

namespace {

// More calls than any scenario makes; a limit for endless loops.
constexpr std::uint64_t kTooManyRuns = 1000;

// Returns a description of the first difference; empty if there is none.
std::string FirstDifference(const std::vector<std::string>& expected,
                            const std::vector<std::string>& recorded) {
  const auto [wanted, found] =
      std::mismatch(expected.begin(), expected.end(), recorded.begin(), recorded.end());
  if (wanted == expected.end() && found == recorded.end()) {
    return {};
  }
  std::string text = "after";
  constexpr std::ptrdiff_t kContext = 4;
  for (auto before = wanted - std::min(kContext, wanted - expected.begin()); before != wanted; ++before) {
    text += "\n  " + *before;
  }
  text += "\nexpected\n  " + (wanted == expected.end() ? "the end" : *wanted);
  return text + "\nbut there is\n  " + (found == recorded.end() ? "the end" : *found);
}

const std::vector<Scenario>& EverySystemsScenarios() {
  static const std::vector<Scenario> scenarios = {QueryScenario(), OpenScenario(), OpenFramesCloseScenario(),
                                                  OpenTwiceScenario(), QueryOpenCloseQueryScenario()};
  return scenarios;
}

}  // namespace

bool EveryCall::Play(const Plan& plan) const {
  const Scenario& scenario = GetScenario();
  // With the reference model.
  Faults modelFaults;
  ReferenceModel expected(modelFaults);
  scenario.prepare(expected);
  modelFaults.Begin(plan);
  scenario.play(expected);
  modelFaults.End();
  const std::vector<std::string> expectedAlive = expected.Alive();
  const std::vector<std::string> results = ResultsIn(expected.Trace());
  const PostState postState = expected.After();
  Recover(expected, postState);

  // With the library.
  scripted::Platform& platform = scripted::Platform::Get();
  Faults faults;
  RecordedRun recorded(faults, expected.Fates());
  scenario.prepare(recorded);
  faults.Begin(plan);
  scenario.play(recorded);
  faults.End();
  EXPECT_THAT(platform.Alive(), ::testing::UnorderedElementsAreArray(expectedAlive));
  const std::uint64_t packets = HostCallbacks::Get().PacketCount();
  Recover(recorded, postState);

  EXPECT_EQ(FirstDifference(expected.Trace(), recorded.Trace()), "");
  // Independent of the model, the recovery must succeed.
  EXPECT_THAT(ResultsIn(recorded.Trace()), ::testing::Contains("open returns 0"));
  EXPECT_EQ(ResultsIn(recorded.Trace()).back(), "close returns 1");
  EXPECT_EQ(HostCallbacks::Get().PacketCount(), packets + 1);
  EXPECT_THAT(platform.Alive(), ::testing::UnorderedElementsAreArray(expected.Alive()));
  EXPECT_THAT(platform.Alive(), ::testing::Each("current media type"));
  EXPECT_THAT(platform.Misuse(), ::testing::IsEmpty());
  EXPECT_EQ(faults.HaveHappened(), modelFaults.HaveHappened());
  if (!faults.HaveHappened()) {
    EXPECT_EQ(results, scenario.results) << "the end was not reached";
  }
  platform.DisposeOfAll();
  return faults.HaveHappened();
}

void EveryCall::PlayUntilNothingFails(Subject subject, const std::string& kind,
                                      scripted::Answer answer) const {
  Plan plan{subject, 0, std::get<Persistence>(GetParam()), answer};
  do {
    ++plan.number;
    ASSERT_LT(plan.number, kTooManyRuns);
    const bool hasFailed = Play(plan);
    ASSERT_FALSE(HasFailure()) << kind << " at number " << plan.number;
    if (!hasFailed) {
      break;
    }
  } while (true);
  std::cout << GetScenario().name << ", " << kind << ": " << plan.number << " runs\n";
  EXPECT_GT(plan.number, 1U) << "nothing has failed";
}

TEST_P(EveryCall, FailsWithDocumentedResult) {
  ASSERT_NO_FATAL_FAILURE(PlayUntilNothingFails(Subject::kCalls, "E_FAIL", scripted::Fails()));
  ASSERT_NO_FATAL_FAILURE(
      PlayUntilNothingFails(Subject::kCalls, "E_FAIL with output", scripted::FailsWithOutput()));
  ASSERT_NO_FATAL_FAILURE(PlayUntilNothingFails(Subject::kCalls, "S_FALSE", scripted::SFalse()));
  ASSERT_NO_FATAL_FAILURE(
      PlayUntilNothingFails(Subject::kCalls, "success with null", scripted::SucceedsWithNull()));
  if (GetScenario().name != QueryScenario().name) {
    PlayUntilNothingFails(Subject::kThreadStarts, "no thread", scripted::Fails());
  }
}

INSTANTIATE_TEST_SUITE_P(Of, EveryCall,
                         ::testing::Combine(::testing::ValuesIn(EverySystemsScenarios()),
                                            ::testing::Values(Persistence::kTransient,
                                                              Persistence::kPersistent)),
                         EveryCall::NameOf);

}  // namespace fault
