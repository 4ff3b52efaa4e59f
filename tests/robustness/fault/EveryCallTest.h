// Fixture for tests that repeat a scenario with a different failure each time.
#pragma once

#include <gtest/gtest.h>

#include <tuple>

#include "FaultInjection.h"
#include "Scenarios.h"

namespace fault {

class EveryCall : public ::testing::TestWithParam<std::tuple<Scenario, support::Persistence>> {
 public:
  static std::string NameOf(const ::testing::TestParamInfo<ParamType>& info) {
    const bool isTransient = std::get<support::Persistence>(info.param) == support::Persistence::kTransient;
    return std::get<Scenario>(info.param).name + (isTransient ? "Transient" : "Persistent");
  }

 protected:
  const Scenario& GetScenario() const { return std::get<Scenario>(GetParam()); }
  // Repeats the scenario and fails the first call, then the second, and so on, until no call fails.
  void PlayUntilNothingFails(Subject subject, const std::string& kind, scripted::Answer answer) const;

 private:
  // Runs the scenario once and compares it with the reference model. True if the planned failure happened.
  bool Play(const Plan& plan) const;
};

}  // namespace fault
