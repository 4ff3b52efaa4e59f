// Every allocation of the library fails in turn. The affected function returns its failure, or a log line is
// lost. A running camera does not allocate. Nothing is leaked, and a new session works.
#include "ScenarioTest.h"
#include "support/FailingAllocations.h"

namespace fault {

using support::FailingAllocations;

namespace {

// File name of the library up to the first dot.
std::string LibraryName() {
  const std::string file = NUVEQ_LIBRARY_FILE;
  return file.substr(0, file.find('.'));
}

class EveryAllocation : public ScenarioTest {};

TEST_P(EveryAllocation, FailsWithDocumentedResult) {
  RepeatUntilNothingFails("no memory", [this](std::uint64_t number) {
    // Allocations of the logger and the platform do not fail.
    FailingAllocations allocations = FailingAllocations::InLibraries({LibraryName()});
    HostRun run([&] { return allocations.Failures(); });
    RunAndCheck(
        run, [&] { allocations.FailNth(number, GetPersistence()); }, [&] { allocations.FailNothing(); });
    return allocations.HasFailed();
  });
}

std::vector<Scenario> AllScenarios() {
  std::vector<Scenario> scenarios = Scenarios();
  scenarios.push_back(ManyFramesScenario());
  scenarios.push_back(DestroyWhileOpenScenario());
  return scenarios;
}

INSTANTIATE_TEST_SUITE_P(Of, EveryAllocation, EveryAllocation::TransientAndPersistent(AllScenarios()),
                         EveryAllocation::NameOf);

}  // namespace

}  // namespace fault
