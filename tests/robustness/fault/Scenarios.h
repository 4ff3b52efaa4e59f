// What hosts do, each from a fresh library on.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "Scenario.h"

struct Scenario {
  std::string name;
  // Before anything fails.
  std::function<void(Run&)> prepare;
  std::function<void(Run&)> play;
  // What its steps answer when nothing fails, that is when it gets to its end.
  std::vector<std::string> results;
};
inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

// What functions answered on the way.
std::vector<std::string> ResultsIn(const std::vector<std::string>& trace);

Scenario QueryScenario();
Scenario OpenScenario();
Scenario OpenFramesCloseScenario();
Scenario OpenTwiceScenario();
Scenario QueryOpenCloseQueryScenario();
// Unloads the library while the camera is open, where the system lets it stop its thread meanwhile.
Scenario DestroyWhileOpenScenario();

// After a scenario: what stands between it and an open that has to work.
struct PostState {
  bool isLoaded = true;
  bool hasPool = false;      // open refuses until a close
  bool hasControl = false;   // close has something to work on
  bool knowsCamera = false;  // a query has found one
};

// What a host does once the trouble is over. Ends with an open, one frame, a close and an unload.
void Recover(Run& course, const PostState& aftermath);
