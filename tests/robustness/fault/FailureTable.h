// What a host sees if a platform call fails: its result, and the log lines and callbacks. A row for every
// call of a session that can fail.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace fault {

// State of the library after an open, and what the host does next.
enum class State {
  kClosed,        // no camera is open: open again
  kOpen,          // the graph is built, and running unless the open failed: close
  kPartialGraph,  // close; until then no open succeeds
  kNoCompletion,  // as kPartialGraph, but the close cannot wait for the graph
  kNoGraph        // no open succeeds, and a close has no effect: unload the library
};

// Objects that an open leaves. Each stage includes the previous ones.
enum class Left {
  kNothing,
  kEncoder,
  kPool,
  kControl,  // the graph, and the pin of the module
  kGraph,    // the graph with both interfaces
  kCamera,
  kGrabber
};

// Returns the labels of the objects, without that of the format, which each open reads and leaves by design.
std::vector<std::string> LabelsOf(Left left);

// What the host sees of a step, or of the rest of a step after a failure.
struct Outcome {
  int result;
  // Log lines, callbacks and outputs, in order. "%" is the code of the failed call.
  std::vector<std::string> events;
  Left left = Left::kNothing;  // by an open
};

// A platform call. Without an outcome its failure has no effect: the step continues, and the host sees what
// it sees without the failure.
struct Row {
  Row(std::string row, const std::optional<Outcome>& outcome) : Row(std::move(row), outcome, outcome) {}
  Row(std::string row, std::optional<Outcome> outcome, std::optional<Outcome> null)
      : call(std::move(row)), failure(std::move(outcome)), withNull(std::move(null)) {}

  // Name of the operation, with arguments where several rows of a step need them to be understood.
  std::string call;
  std::optional<Outcome> failure;   // after a result other than S_OK
  std::optional<Outcome> withNull;  // after S_OK without an output
};

// False for operations that cannot report a failure. They have no row.
bool CanFail(const std::string& operation);

// Returns the calls of a step that can fail, in order.
const std::vector<Row>& RowsOf(const std::string& step);

// Returns the results of a step whose failure is reported if memory runs out. A log line that cannot be
// allocated is lost without a failure.
std::vector<int> ResultsWithoutMemory(const std::string& step);

// A step whose outcome an earlier failure determines.
struct DeterminedStep {
  Outcome outcome;
  std::vector<Row> rows;  // its calls that can fail, in order
};

// Returns the step if it is determined by the state that an open has left, or because the last query has not
// found a camera.
std::optional<DeterminedStep> StepAfterFailure(const std::string& step, State state, bool hasCamera);

}  // namespace fault
