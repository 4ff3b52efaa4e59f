// Checks the steps of a run with failures against the failure table and a run of the same scenario without.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "FailureTable.h"
#include "HostRun.h"

namespace fault {

// Label of the structure that each open leaves: that of the format which it has read.
inline const std::string kLeftByDesign = "current media type";

class RunChecker {
 public:
  // answer: that of the failing calls.
  RunChecker(const std::vector<Step>& runWithoutFailure, scripted::Answer answer);
  // To be called for every step in order.
  void Check(const Step& step);
  // To be called after the last step: expects that a new session has worked and that nothing is left.
  void CheckEnd() const;

 private:
  void CheckCallFailures(const Step& step, const Outcome& unfailed) const;
  void CheckAllocationFailures(const Step& step, const Outcome& unfailed) const;
  void CheckObjects(const Step& step) const;
  // Expects exactly the objects of a failed or successful open.
  void CheckLeft(const Step& step, Left left) const;
  void UpdateState(const Step& step);

  // The first step of each name in the run without a failure.
  std::map<std::string, Step> m_usual;
  scripted::Answer m_answer;
  State m_state = State::kClosed;
  bool m_hasCamera = false;
  // The last query has not returned the usual lists, so that an open may select another format.
  bool m_hasOtherFormats = false;
  // Number of formats that opens have read.
  std::size_t m_formats = 0;
  std::vector<std::pair<std::string, int>> m_results;
};

}  // namespace fault
