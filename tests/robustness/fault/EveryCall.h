// The fixture of tests that play a scenario again and again, with another failure each time.
#pragma once

#include <gtest/gtest.h>

#include <tuple>

#include "FaultInjection.h"
#include "Scenarios.h"

class EveryCall : public ::testing::TestWithParam<std::tuple<Scenario, Persistence>> {
 public:
  static std::string NameOf(const ::testing::TestParamInfo<ParamType>& info) {
    const bool isOnce = std::get<Persistence>(info.param) == Persistence::kTransient;
    return std::get<Scenario>(info.param).name + (isOnce ? "Once" : "ForGood");
  }

 protected:
  const Scenario& GetScenario() const { return std::get<Scenario>(GetParam()); }
  // Plays the scenario with failure after failure of that kind, until nothing is left to fail.
  void PlayToTheEnd(Subject subject, const std::string& kind, scripted::Answer answer) const;

 private:
  // One run, beside its expected course. True when the failure of the plan came about.
  bool Play(const Plan& plan) const;
};
