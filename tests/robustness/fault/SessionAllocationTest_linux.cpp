// Every allocation of the library fails in turn. The affected function returns its failure, or a log line or
// a packet is lost. No buffer is lost, and a new session works.
#include <gmock/gmock.h>

#include <algorithm>
#include <iostream>

#include "EveryCallTest.h"
#include "LowMemoryScenario.h"
#include "ReferenceModel.h"

namespace fault {

using support::HostCallbacks;
using support::Persistence;

namespace {

using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::UnorderedElementsAreArray;

// More allocations than any scenario makes; a limit for endless loops.
constexpr std::uint64_t kTooManyAllocations = 5000;
// Enough frames that a queue which allocates while running would be detected.
constexpr unsigned kManyFrames = 200;

constexpr unsigned kBuffersOfThePool = 5;
// The record, its id, its abilities and their two lists.
constexpr std::size_t kBlocksOfARecord = 5;
const std::string kFormat = "current media type";

using Labels = std::vector<std::string>;

Labels operator+(Labels labels, const Labels& more) {
  labels.insert(labels.end(), more.begin(), more.end());
  return labels;
}

std::size_t Formats(const Labels& labels) {
  return static_cast<std::size_t>(std::count(labels.begin(), labels.end(), kFormat));
}

bool Contained(const Labels& lines, const std::string& line) {
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

class EveryAllocation : public EveryCall {
 protected:
  // Runs the scenario once. True if the allocation of that number was made and failed.
  bool PlayWithFailure(std::uint64_t number) const;

  void ExpectReports(const LowMemoryRun& run) const;

  Persistence GetPersistence() const { return std::get<Persistence>(GetParam()); }
};

// The expected results of a step and the objects that it may leave.
void ExpectQuery(const Step& step) {
  if (step.result == 0) {
    EXPECT_EQ(step.after.size(), step.before.size() + kBlocksOfARecord);
    return;
  }
  // Out of memory outside of the records.
  EXPECT_EQ(step.result, -1000);
  EXPECT_THAT(step.after, UnorderedElementsAreArray(step.before));
}

void ExpectOpen(const Step& step, const Step* earlierOpen) {
  const bool hadPool = std::count(step.before.begin(), step.before.end(), "frame") != 0;
  // Structures of earlier formats are leaked.
  Labels encoder(Formats(step.before), kFormat);
  encoder.emplace_back("encoder");
  const Labels pool = encoder + Labels(kBuffersOfThePool, "frame");
  const Labels graph = pool + Labels{"graph: 2", "pin of the module"};
  const Labels camera = graph + Labels{"built-in: 1", "built-in.capture: 1"};
  const Labels whole = camera + Labels{"grabber: 1", "grabber.in: 1", "grabber.out: 1", kFormat};
  switch (step.result) {
    case 0:
      EXPECT_FALSE(hadPool);
      EXPECT_THAT(step.after, UnorderedElementsAreArray(whole));
      break;
    case -4:
      // The earlier open has built its graph, even if it could not start the thread.
      ASSERT_NE(earlierOpen, nullptr);
      EXPECT_THAT(earlierOpen->result, AnyOf(0, -1001));
      EXPECT_THAT(earlierOpen->after, Contains("grabber: 1"));
      EXPECT_THAT(step.after, UnorderedElementsAreArray(step.before));
      break;
    case -1004:
      // The pool is complete or absent.
      if (hadPool) {
        ASSERT_NE(earlierOpen, nullptr);
        EXPECT_EQ(earlierOpen->result, -1001);
        EXPECT_THAT(earlierOpen->after, Not(Contains("grabber: 1"))) << "the graph was built";
        EXPECT_THAT(step.after, UnorderedElementsAreArray(step.before));
      } else {
        EXPECT_THAT(step.after, UnorderedElementsAreArray(encoder));
      }
      break;
    case -1001:
      if (!step.hasOperator) {
        EXPECT_THAT(step.after, ::testing::IsEmpty());
        break;
      }
      // The graph is partially built.
      EXPECT_FALSE(hadPool);
      EXPECT_THAT(step.after, AnyOf(UnorderedElementsAreArray(graph), UnorderedElementsAreArray(camera),
                                    UnorderedElementsAreArray(whole)));
      break;
    default:
      ADD_FAILURE() << "open returns " << step.result;
  }
}

// A close does not allocate.
void ExpectClose(const Step& step) {
  const bool hadGraph = std::count(step.before.begin(), step.before.end(), "graph: 2") != 0;
  EXPECT_EQ(step.result, hadGraph ? 1 : 0);
  EXPECT_THAT(step.after,
              UnorderedElementsAreArray(hadGraph ? Labels(Formats(step.before), kFormat) : step.before));
}

void ExpectSteps(const std::vector<Step>& steps) {
  const Step* earlierOpen = nullptr;
  for (const Step& step : steps) {
    if (step.function == "query") {
      ExpectQuery(step);
    } else if (step.function == "close") {
      ExpectClose(step);
    } else {
      ExpectOpen(step, earlierOpen);
      earlierOpen = &step;
    }
  }
}

auto CountLogLines(const std::vector<std::string>& trace) {
  return std::count_if(trace.begin(), trace.end(), [](const std::string& event) {
    return event.starts_with("ERROR ") || event.starts_with("WARN ");
  });
}

// After a transient failure its log lines can be allocated.
void EveryAllocation::ExpectReports(const LowMemoryRun& run) const {
  const std::vector<std::string> trace = run.Trace();
  const std::vector<std::string> results = ResultsIn(trace);
  if (GetPersistence() == Persistence::kTransient && Contained(results, "open returns -1004")) {
    EXPECT_THAT(trace, Contains(HasSubstr("Start open camera")));
    EXPECT_THAT(trace, Contains(HasSubstr("AllocBuffer fail.")));
    EXPECT_THAT(trace, Contains(HasSubstr("fail to init video encoder")));
  }
  if (GetPersistence() == Persistence::kTransient && results == GetScenario().results) {
    // Only the message whose own allocation failed can be lost.
    Faults none;
    ReferenceModel expected(none);
    GetScenario().prepare(expected);
    GetScenario().play(expected);
    EXPECT_GE(CountLogLines(trace) + (run.HasFailed() ? 1 : 0), CountLogLines(expected.Trace()));
  }
  if (run.LatestResult("query") == 0) {
    EXPECT_THAT(trace, Contains("count 1, id \"0\", 15000, 30000, 64x48"));
  }
}

bool EveryAllocation::PlayWithFailure(std::uint64_t number) const {
  scripted::Platform& platform = scripted::Platform::Get();
  Faults faults;
  LowMemoryRun run(faults);
  GetScenario().prepare(run);
  run.BeginToFail(number, GetPersistence());
  GetScenario().play(run);
  run.FailNothing();
  ExpectReports(run);
  const bool hasFailed = run.HasFailed();
  if (!hasFailed) {
    EXPECT_EQ(ResultsIn(run.Trace()), GetScenario().results) << "the end was not reached";
  }
  const unsigned frames = run.DeliveredFrames();
  if (frames != 0 && GetPersistence() == Persistence::kTransient) {
    EXPECT_GE(HostCallbacks::Get().PacketCount() + 1, frames) << "more than one packet was lost";
  }
  if (run.IsCameraOpen()) {
    run.ExpectWholePool();
  }
  run.Recover();
  ExpectSteps(run.Steps());
  EXPECT_EQ(platform.CallCount("CoInitialize"), platform.CallCount("CoUninitialize"));
  EXPECT_THAT(platform.Alive(), ::testing::Each("current media type"));
  EXPECT_THAT(platform.Misuse(), ::testing::IsEmpty());
  platform.DisposeOfAll();
  return hasFailed;
}

TEST_P(EveryAllocation, FailsWithDocumentedResult) {
  std::uint64_t number = 0;
  do {
    ++number;
    ASSERT_LT(number, kTooManyAllocations);
    const bool hasFailed = PlayWithFailure(number);
    ASSERT_FALSE(HasFailure()) << "allocation " << number;
    if (!hasFailed) {
      break;
    }
  } while (true);
  std::cout << GetScenario().name << ", no memory: " << number << " runs\n";
  EXPECT_GT(number, 1U) << "nothing has failed";
}

// The camera stays open, so that the pool can be checked.
Scenario OpenManyFramesScenario() {
  Scenario scenario = OpenScenario();
  scenario.name = "OpenManyFrames";
  scenario.play = [](Run& run) {
    run.Open();
    run.DeliverFrames(kManyFrames);
  };
  return scenario;
}

INSTANTIATE_TEST_SUITE_P(
    Of, EveryAllocation,
    ::testing::Combine(::testing::Values(QueryScenario(), OpenScenario(), OpenManyFramesScenario(),
                                         OpenFramesCloseScenario(), OpenTwiceScenario(),
                                         QueryOpenCloseQueryScenario(), DestroyWhileOpenScenario()),
                       ::testing::Values(Persistence::kTransient, Persistence::kPersistent)),
    EveryCall::NameOf);

}  // namespace

}  // namespace fault
