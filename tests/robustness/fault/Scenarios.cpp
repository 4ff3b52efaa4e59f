#include "Scenarios.h"

#include <algorithm>
#include <iterator>

namespace fault {

namespace {

// One more than buffers in the pool, so that every buffer is used.
constexpr unsigned kFrames = 6;

void LoadAndQuery(Run& run) {
  run.Load();
  run.Query();
  run.Release();
}

// A scenario in which the library is loaded and the camera found before failures begin.
Scenario AfterAQuery(std::string name, std::function<void(Run&)> play, std::vector<std::string> results) {
  return {std::move(name), LoadAndQuery, std::move(play), std::move(results)};
}

}  // namespace

std::vector<std::string> ResultsIn(const std::vector<std::string>& trace) {
  std::vector<std::string> results;
  std::copy_if(trace.begin(), trace.end(), std::back_inserter(results),
               [](const std::string& event) { return event.find(" returns ") != std::string::npos; });
  return results;
}

Scenario QueryScenario() {
  return {"Query",
          [](Run&) {},
          [](Run& run) {
            run.Load();
            run.Query();
          },
          {"query returns 0"}};
}

Scenario OpenScenario() {
  return AfterAQuery("Open", [](Run& run) { run.Open(); }, {"query returns 0", "open returns 0"});
}

Scenario OpenFramesCloseScenario() {
  return AfterAQuery("OpenFramesClose",
                     [](Run& run) {
                       run.Open();
                       run.DeliverFrames(kFrames);
                       run.Close();
                     },
                     {"query returns 0", "open returns 0", "close returns 1"});
}

Scenario OpenTwiceScenario() {
  return AfterAQuery("OpenTwice",
                     [](Run& run) {
                       run.Open();
                       run.Open();
                     },
                     {"query returns 0", "open returns 0", "open returns -4"});
}

Scenario QueryOpenCloseQueryScenario() {
  return {"QueryOpenCloseQuery",
          [](Run&) {},
          [](Run& run) {
            LoadAndQuery(run);
            run.Open();
            run.Close();
            run.Query();
          },
          {"query returns 0", "open returns 0", "close returns 1", "query returns 0"}};
}

Scenario DestroyWhileOpenScenario() {
  return AfterAQuery("DestroyWhileOpen",
                     [](Run& run) {
                       run.Open();
                       run.DeliverFrames(kFrames);
                       run.Unload();
                     },
                     {"query returns 0", "open returns 0"});
}

void Recover(Run& run, const PostState& postState) {
  bool isFresh = !postState.isLoaded;
  if (!isFresh) {
    run.Release();
    if (postState.hasPool) {
      run.Close();
    }
    if (postState.hasPool && !postState.hasControl) {
      // The close had no effect: every open fails until the library is reloaded.
      run.Open();
      run.Unload();
      isFresh = true;
    }
  }
  if (isFresh) {
    run.Load();
  }
  if (isFresh || !postState.knowsCamera) {
    run.Query();
    run.Release();
  }
  run.Open();
  run.DeliverFrames(1);
  run.Close();
  run.Unload();
}

}  // namespace fault
