#include "ScenarioTest.h"

#include "RunChecker.h"

namespace fault {

namespace {

// A scenario in which the library is loaded and the camera found before failures begin.
Scenario AfterAQuery(const std::string& name, const Actions& play) {
  return {
      name, {&HostRun::LoadLibrary, &HostRun::RegisterCallbacks, &HostRun::Query, &HostRun::Release}, play};
}

}  // namespace

std::vector<Scenario> Scenarios() {
  return {{"Query", {&HostRun::LoadLibrary}, {&HostRun::RegisterCallbacks, &HostRun::Query}},
          AfterAQuery("Open", {&HostRun::Open}),
          AfterAQuery("OpenFramesClose", {&HostRun::Open, &HostRun::DeliverFrames, &HostRun::Close}),
          AfterAQuery("OpenTwice", {&HostRun::Open, &HostRun::Open}),
          {"QueryOpenCloseQuery",
           {&HostRun::LoadLibrary},
           {&HostRun::RegisterCallbacks, &HostRun::Query, &HostRun::Release, &HostRun::Open, &HostRun::Close,
            &HostRun::Query}}};
}

Scenario ManyFramesScenario() {
  return AfterAQuery("OpenManyFrames", {&HostRun::Open, &HostRun::DeliverManyFrames});
}

Scenario DestroyWhileOpenScenario() {
  return AfterAQuery("DestroyWhileOpen", {&HostRun::Open, &HostRun::DeliverFrames, &HostRun::Unload});
}

void ScenarioTest::SetUp() {
  HostRun run;
  const auto nothing = [] {};
  RunAndCheck(run, nothing, nothing);
}

void ScenarioTest::RunAndCheck(HostRun& run, const std::function<void()>& begin,
                               const std::function<void()>& end, scripted::Answer answer) {
  const auto perform = [&run](const Actions& actions) {
    for (const auto action : actions) {
      (run.*action)();
    }
  };
  perform(GetScenario().prepare);
  begin();
  perform(GetScenario().play);
  end();
  run.Recover();
  if (m_withoutFailure.empty()) {
    m_withoutFailure = run.Steps();
  }
  RunChecker checker(m_withoutFailure, answer);
  for (const Step& step : run.Steps()) {
    checker.Check(step);
  }
  checker.CheckEnd();
  scripted::Platform::Get().DisposeOf(kLeftByDesign);
}

void ScenarioTest::RepeatUntilNothingFails(const std::string& kind,
                                           const std::function<bool(std::uint64_t number)>& run) {
  // More failures than any scenario has; a limit for endless loops.
  constexpr std::uint64_t kTooMany = 1000;
  std::uint64_t number = 0;
  bool hasFailed = true;
  while (hasFailed) {
    ++number;
    ASSERT_LT(number, kTooMany);
    hasFailed = run(number);
    ASSERT_FALSE(HasFailure()) << kind << " at number " << number;
  }
  RecordProperty("fault_injection_runs, " + kind, std::to_string(number));
  EXPECT_GT(number, 1U) << "nothing has failed";
}

}  // namespace fault
