// Scenarios of the fault tests. Each starts with the library not loaded.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "Run.h"

namespace fault {

struct Scenario {
  std::string name;
  // Runs before failures begin.
  std::function<void(Run&)> prepare;
  std::function<void(Run&)> play;
  // Results of the steps without a failure.
  std::vector<std::string> results;
};
inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

// Returns the results in a trace.
std::vector<std::string> ResultsIn(const std::vector<std::string>& trace);

Scenario QueryScenario();
Scenario OpenScenario();
Scenario OpenFramesCloseScenario();
Scenario OpenTwiceScenario();
Scenario QueryOpenCloseQueryScenario();
// Unloads the library while the camera is open. Not for Windows.
Scenario DestroyWhileOpenScenario();

// State after a scenario, as far as the recovery depends on it.
struct PostState {
  bool isLoaded = true;
  bool hasPool = false;      // an open fails until a close
  bool hasControl = false;   // a close has an effect
  bool knowsCamera = false;  // a query has found one
};

// Recovers after the failures: ends with an open, one frame, a close and an unload.
void Recover(Run& run, const PostState& postState);

}  // namespace fault
