// Every call of the platform's and every thread start fails, one after another and in every way: what the
// host is answered, told and left with is what it should be, nothing hangs, and it can go on.
#include "EveryCall.h"

#include <gmock/gmock.h>

#include <iostream>

#include "RecordedRun.h"
#include "ReferenceModel.h"

namespace {

// More calls than any scenario makes; reached only by one that does not end.
constexpr std::uint64_t kTooManyRuns = 1000;

// Empty when there is none.
std::string FirstDifference(const std::vector<std::string>& expected,
                            const std::vector<std::string>& played) {
  const auto [wanted, found] = std::mismatch(expected.begin(), expected.end(), played.begin(), played.end());
  if (wanted == expected.end() && found == played.end()) {
    return {};
  }
  std::string text = "after";
  constexpr std::ptrdiff_t kContext = 4;
  for (auto before = wanted - std::min(kContext, wanted - expected.begin()); before != wanted; ++before) {
    text += "\n  " + *before;
  }
  text += "\nexpected\n  " + (wanted == expected.end() ? "the end" : *wanted);
  return text + "\nbut there is\n  " + (found == played.end() ? "the end" : *found);
}

const std::vector<Scenario>& EverySystemsScenarios() {
  static const std::vector<Scenario> scenarios = {QueryScenario(), OpenScenario(), OpenFramesCloseScenario(),
                                                  OpenTwiceScenario(), QueryOpenCloseQueryScenario()};
  return scenarios;
}

}  // namespace

bool EveryCall::Play(const Plan& plan) const {
  const Scenario& scenario = GetScenario();
  // On paper.
  Faults paperFaults;
  ReferenceModel expected(paperFaults);
  scenario.prepare(expected);
  paperFaults.Begin(plan);
  scenario.play(expected);
  paperFaults.End();
  const std::vector<std::string> expectedAlive = expected.Alive();
  const std::vector<std::string> results = ResultsIn(expected.Trace());
  const PostState aftermath = expected.After();
  Recover(expected, aftermath);

  // With the library.
  scripted::Platform& platform = scripted::Platform::Get();
  Faults faults;
  RecordedRun played(faults, expected.Fates());
  scenario.prepare(played);
  faults.Begin(plan);
  scenario.play(played);
  faults.End();
  EXPECT_THAT(platform.Alive(), ::testing::UnorderedElementsAreArray(expectedAlive));
  const std::uint64_t packets = HostCallbacks::Get().PacketCount();
  Recover(played, aftermath);

  EXPECT_EQ(FirstDifference(expected.Trace(), played.Trace()), "");
  // Whatever the paper says, the recovery has to be one.
  EXPECT_THAT(ResultsIn(played.Trace()), ::testing::Contains("open answers 0"));
  EXPECT_EQ(ResultsIn(played.Trace()).back(), "close answers 1");
  EXPECT_EQ(HostCallbacks::Get().PacketCount(), packets + 1);
  EXPECT_THAT(platform.Alive(), ::testing::UnorderedElementsAreArray(expected.Alive()));
  EXPECT_THAT(platform.Alive(), ::testing::Each("current media type"));
  EXPECT_THAT(platform.Misuse(), ::testing::IsEmpty());
  EXPECT_EQ(faults.HaveHappened(), paperFaults.HaveHappened());
  if (!faults.HaveHappened()) {
    EXPECT_EQ(results, scenario.results) << "the end was not reached";
  }
  platform.DisposeOfAll();
  return faults.HaveHappened();
}

void EveryCall::PlayToTheEnd(Subject subject, const std::string& kind, scripted::Answer answer) const {
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

TEST_P(EveryCall, MayFail) {
  ASSERT_NO_FATAL_FAILURE(PlayToTheEnd(Subject::kCalls, "E_FAIL", scripted::Fails()));
  ASSERT_NO_FATAL_FAILURE(PlayToTheEnd(Subject::kCalls, "E_FAIL with output", scripted::FailsWithOutput()));
  ASSERT_NO_FATAL_FAILURE(PlayToTheEnd(Subject::kCalls, "S_FALSE", scripted::SFalse()));
  ASSERT_NO_FATAL_FAILURE(PlayToTheEnd(Subject::kCalls, "success with null", scripted::SucceedsWithNull()));
  if (GetScenario().name != QueryScenario().name) {
    PlayToTheEnd(Subject::kThreadStarts, "no thread", scripted::Fails());
  }
}

INSTANTIATE_TEST_SUITE_P(Of, EveryCall,
                         ::testing::Combine(::testing::ValuesIn(EverySystemsScenarios()),
                                            ::testing::Values(Persistence::kTransient,
                                                              Persistence::kPersistent)),
                         EveryCall::NameOf);
