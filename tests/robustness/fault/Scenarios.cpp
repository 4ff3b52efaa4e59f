#include "Scenarios.h"

#include <algorithm>
#include <iterator>

namespace {

// One more than there are buffers, so that each is used, and one that is lost is missed.
constexpr unsigned kFrames = 6;

void LoadAndQuery(Run& course) {
  course.Load();
  course.Query();
  course.Release();
}

// The library is loaded, and the camera known, before something fails.
Scenario AfterAQuery(std::string name, std::function<void(Run&)> play, std::vector<std::string> results) {
  return {std::move(name), LoadAndQuery, std::move(play), std::move(results)};
}

}  // namespace

std::vector<std::string> ResultsIn(const std::vector<std::string>& trace) {
  std::vector<std::string> results;
  std::copy_if(trace.begin(), trace.end(), std::back_inserter(results),
               [](const std::string& event) { return event.find(" answers ") != std::string::npos; });
  return results;
}

Scenario QueryScenario() {
  return {"Query",
          [](Run&) {},
          [](Run& course) {
            course.Load();
            course.Query();
          },
          {"query answers 0"}};
}

Scenario OpenScenario() {
  return AfterAQuery("Open", [](Run& course) { course.Open(); }, {"query answers 0", "open answers 0"});
}

Scenario OpenFramesCloseScenario() {
  return AfterAQuery("OpenFramesClose",
                     [](Run& course) {
                       course.Open();
                       course.DeliverFrames(kFrames);
                       course.Close();
                     },
                     {"query answers 0", "open answers 0", "close answers 1"});
}

Scenario OpenTwiceScenario() {
  return AfterAQuery("OpenTwice",
                     [](Run& course) {
                       course.Open();
                       course.Open();
                     },
                     {"query answers 0", "open answers 0", "open answers -4"});
}

Scenario QueryOpenCloseQueryScenario() {
  return {"QueryOpenCloseQuery",
          [](Run&) {},
          [](Run& course) {
            LoadAndQuery(course);
            course.Open();
            course.Close();
            course.Query();
          },
          {"query answers 0", "open answers 0", "close answers 1", "query answers 0"}};
}

Scenario DestroyWhileOpenScenario() {
  return AfterAQuery("DestroyWhileOpen",
                     [](Run& course) {
                       course.Open();
                       course.DeliverFrames(kFrames);
                       course.Unload();
                     },
                     {"query answers 0", "open answers 0"});
}

void Recover(Run& course, const PostState& aftermath) {
  bool isFresh = !aftermath.isLoaded;
  if (!isFresh) {
    course.Release();
    if (aftermath.hasPool) {
      course.Close();
    }
    if (aftermath.hasPool && !aftermath.hasControl) {
      // There was nothing for the close to work on: opening is refused until the library is loaded anew.
      course.Open();
      course.Unload();
      isFresh = true;
    }
  }
  if (isFresh) {
    course.Load();
  }
  if (isFresh || !aftermath.knowsCamera) {
    course.Query();
    course.Release();
  }
  course.Open();
  course.DeliverFrames(1);
  course.Close();
  course.Unload();
}
