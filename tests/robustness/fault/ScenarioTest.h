// Fixtures for tests that repeat a scenario with a different failure each time.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "HostRun.h"
#include "support/Persistence.h"

namespace fault {

using Actions = std::vector<void (HostRun::*)()>;

struct Scenario {
  std::string name;
  Actions prepare;  // without failures
  Actions play;
};
inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

// The scenarios of all systems.
std::vector<Scenario> Scenarios();
Scenario ManyFramesScenario();
// Unloads the library while the camera is open. Not for Windows.
Scenario DestroyWhileOpenScenario();

class ScenarioTest : public ::testing::TestWithParam<std::tuple<Scenario, support::Persistence>> {
 public:
  static auto TransientAndPersistent(const std::vector<Scenario>& scenarios) {
    return ::testing::Combine(
        ::testing::ValuesIn(scenarios),
        ::testing::Values(support::Persistence::kTransient, support::Persistence::kPersistent));
  }
  static std::string NameOf(const ::testing::TestParamInfo<ParamType>& info) {
    const bool isTransient = std::get<support::Persistence>(info.param) == support::Persistence::kTransient;
    return std::get<Scenario>(info.param).name + (isTransient ? "Transient" : "Persistent");
  }

 protected:
  // Runs the scenario without a failure, for comparison.
  void SetUp() override;

  const Scenario& GetScenario() const { return std::get<Scenario>(GetParam()); }
  support::Persistence GetPersistence() const { return std::get<support::Persistence>(GetParam()); }

  // Runs the scenario with failures between begin and end, recovers, and checks every step.
  void RunAndCheck(HostRun& run, const std::function<void()>& begin, const std::function<void()>& end,
                   scripted::Answer answer = {});
  // Calls run with 1, 2, and so on, until it returns that nothing has failed.
  void RepeatUntilNothingFails(const std::string& kind, const std::function<bool(std::uint64_t number)>& run);

 private:
  std::vector<Step> m_withoutFailure;
};

// Platform calls and thread starts fail.
class EveryCall : public ScenarioTest {};

}  // namespace fault
