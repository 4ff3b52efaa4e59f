#include "RunChecker.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>
#include <set>

namespace fault {

namespace {

using std::string_literals::operator""s;
using ::testing::AnyOfArray;
using ::testing::Each;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;
using EntryIterator = std::vector<Entry>::const_iterator;
using Texts = std::vector<std::string>;

// Returns whether a call may follow the failure that has determined the result of its step: clean-up, and the
// rest of an enumeration in which an operation has failed.
bool MayFollowFailure(const std::string& call, const std::set<std::string>& failed) {
  static const std::set<std::string> devices = {"CoGetMalloc", "CreateBindCtx", "IEnumMoniker::Next",
                                                "IMoniker::GetDisplayName"};
  static const std::set<std::string> usbDevices = {
      "CM_Get_Child",          "CM_Get_DevNode_Status",
      "CM_Get_Device_IDA",     "SetupDiDestroyDeviceInfoList",
      "SetupDiEnumDeviceInfo", "SetupDiEnumDeviceInterfaces",
      "SetupDiGetClassDevsW",  "SetupDiGetDeviceInterfaceDetailW"};
  static const std::set<std::string> pins = {"IEnumPins::Next", "IPin::QueryDirection"};
  const auto hasFailedIn = [&failed](const std::set<std::string>& operations) {
    return std::any_of(operations.begin(), operations.end(),
                       [&failed](const std::string& operation) { return failed.contains(operation); });
  };
  const std::string operation = OperationIn(call);
  return !CanFail(operation) || (devices.contains(operation) && hasFailedIn(devices)) ||
         // A query searches the USB devices even if it has not found the camera.
         (usbDevices.contains(operation) && (hasFailedIn(usbDevices) || hasFailedIn(devices))) ||
         (pins.contains(operation) && hasFailedIn(pins)) ||
         // The records of a camera that cannot be read.
         operation == "AllocateHostBlock" ||
         // The graph refuses a camera that is not there.
         call == "IFilterGraph::AddFilter(null, null)";
}

Texts EventsIn(EntryIterator begin, EntryIterator end) {
  Texts events;
  for (; begin != end; ++begin) {
    if (!begin->isCall) {
      events.push_back(begin->text);
    }
  }
  return events;
}

Texts EventsIn(const Step& step) { return EventsIn(step.entries.begin(), step.entries.end()); }

// Returns the events and the calls that can fail, up to the first failure.
Texts TextsToFailure(const Step& step) {
  Texts texts;
  for (const Entry& entry : step.entries) {
    if (!entry.isCall || CanFail(OperationIn(entry.text))) {
      texts.push_back(entry.text);
    }
    if (entry.fails) {
      break;
    }
  }
  return texts;
}

bool Has(const Texts& texts, const std::string& text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

bool Covers(const Row& row, const std::string& call) {
  return row.call == call || row.call == OperationIn(call);
}

// Expects a row for each call that can fail, and such a call for each row.
void CheckRows(const Step& step, const std::vector<Row>& rows) {
  auto row = rows.begin();
  for (const Entry& entry : step.entries) {
    if (entry.isCall && CanFail(OperationIn(entry.text))) {
      ASSERT_TRUE(row != rows.end() && Covers(*row, entry.text)) << entry.text << " has no row";
      ++row;
    }
  }
  ASSERT_TRUE(row == rows.end()) << row->call << " is not called";
}

// Expects the usual calls in order, perhaps not all of them, and only clean-up after the failure that has
// determined the result. A failed step may need other clean-up than usual; a close may not.
void CheckCalls(const Step& step, EntryIterator afterFailure, const Step& usual) {
  std::set<std::string> failed;
  auto next = usual.entries.begin();
  for (auto entry = step.entries.begin(); entry != step.entries.end(); ++entry) {
    const std::string operation = OperationIn(entry->text);
    const auto found = std::find_if(next, usual.entries.end(), [&](const Entry& candidate) {
      return candidate.isCall && OperationIn(candidate.text) == operation;
    });
    if (found != usual.entries.end() && (entry < afterFailure || !CanFail(operation))) {
      next = std::next(found);
    } else if (entry->isCall) {
      EXPECT_TRUE(MayFollowFailure(entry->text, failed) && step.name != "close") << entry->text;
    }
    if (entry->fails) {
      failed.insert(operation);
    }
  }
}

Outcome WithCode(Outcome outcome, HRESULT code) {
  for (std::string& event : outcome.events) {
    if (const std::size_t placeholder = event.find('%'); placeholder != std::string::npos) {
      event.replace(placeholder, 1, std::to_string(code));
    }
  }
  return outcome;
}

// Returns the number of formats that a step has read.
std::size_t FormatsReadIn(const Step& step) {
  return static_cast<std::size_t>(
      std::count_if(step.entries.begin(), step.entries.end(), [](const Entry& entry) {
        return OperationIn(entry.text) == "IAMStreamConfig::GetFormat" && !entry.fails;
      }));
}

// Determines the state from what an open has left and reported.
State StateAfterOpen(const Step& step) {
  if (!Has(step.alive, "frame")) {
    return State::kClosed;
  }
  if (Has(step.alive, "graph: 1")) {
    return State::kNoCompletion;
  }
  if (!Has(step.alive, "graph: 2")) {
    return State::kNoGraph;
  }
  return Has(EventsIn(step), "status callback \"0\" 1 4") ? State::kOpen : State::kPartialGraph;
}

}  // namespace

RunChecker::RunChecker(const std::vector<Step>& runWithoutFailure, scripted::Answer answer)
    : m_answer(answer) {
  for (const Step& step : runWithoutFailure) {
    m_usual.emplace(step.name, step);
  }
}

void RunChecker::Check(const Step& step) {
  SCOPED_TRACE(step.name);
  const Step& usual = m_usual.at(step.name);
  const std::optional<DeterminedStep> afterFailure = StepAfterFailure(step.name, m_state, m_hasCamera);
  const bool hasFailure =
      step.failedAllocations > 0 ||
      std::any_of(step.entries.begin(), step.entries.end(), [](const Entry& entry) { return entry.fails; });
  if (step.failedAllocations == 0 && !afterFailure && !m_hasOtherFormats) {
    const Texts texts = TextsToFailure(step);
    Texts expected = TextsToFailure(usual);
    if (hasFailure) {
      expected.resize(std::min(expected.size(), texts.size()));
    }
    EXPECT_THAT(texts, ElementsAreArray(expected));
  }
  if (!hasFailure && (afterFailure || !m_hasOtherFormats)) {
    CheckRows(step, afterFailure ? afterFailure->rows : RowsOf(step.name));
  }
  const Outcome unfailed =
      afterFailure ? afterFailure->outcome : Outcome{usual.result, EventsIn(usual), Left::kGrabber};
  if (step.failedAllocations == 0) {
    CheckCallFailures(step, unfailed);
  } else {
    CheckAllocationFailures(step, unfailed);
  }
  CheckObjects(step);
  UpdateState(step);
}

void RunChecker::CheckCallFailures(const Step& step, const Outcome& unfailed) const {
  const std::vector<Row>& rows = RowsOf(step.name);
  // The last failure that has an effect determines the outcome of the rest.
  Outcome expected = unfailed;
  auto rest = step.entries.begin();
  auto row = rows.begin();
  for (auto entry = step.entries.begin(); entry != step.entries.end(); ++entry) {
    const auto found = std::find_if(row, rows.end(), [&](const Row& r) { return Covers(r, entry->text); });
    if (found == rows.end()) {
      continue;
    }
    row = std::next(found);
    const auto& outcome = m_answer.hr == S_OK ? found->withNull : found->failure;
    if (entry->fails && outcome) {
      expected = WithCode(*outcome, m_answer.hr);
      rest = std::next(entry);
    }
  }
  EXPECT_EQ(step.result, expected.result);
  const bool hasFailed = rest != step.entries.begin();
  if (hasFailed || !m_hasOtherFormats) {
    EXPECT_THAT(EventsIn(rest, step.entries.end()), ElementsAreArray(expected.events));
  }
  if (step.name == "open" && m_state == State::kClosed) {
    CheckLeft(step, expected.left);
  }
  const Step& usual = m_usual.at(step.name);
  CheckCalls(step, hasFailed && expected.result != usual.result ? rest : step.entries.end(), usual);
}

void RunChecker::CheckAllocationFailures(const Step& step, const Outcome& unfailed) const {
  const Texts events = EventsIn(step);
  EXPECT_NE(step.name, "frame") << "a running camera allocates";
  CheckCalls(step, step.entries.end(), m_usual.at(step.name));
  if (step.result != unfailed.result) {
    EXPECT_THAT(step.result, AnyOfArray(ResultsWithoutMemory(step.name)));
    // The host need not reload the library.
    EXPECT_TRUE(step.name != "open" || StateAfterOpen(step) != State::kNoGraph);
    return;
  }
  // Each failure costs one log line at most.
  auto next = events.begin();
  for (const std::string& event : unfailed.events) {
    next += next != events.end() && *next == event ? 1 : 0;
  }
  EXPECT_TRUE(next == events.end() || m_hasOtherFormats) << ::testing::PrintToString(events);
  EXPECT_GE(events.size() + step.failedAllocations, unfailed.events.size());
}

void RunChecker::CheckObjects(const Step& step) const {
  const bool hasGraph = m_state != State::kClosed && m_state != State::kNoGraph;
  const bool mayCreateObjects = (step.name == "query" && step.result == NUVEQ_CAMERA_OK) ||
                                (step.name == "open" && m_state == State::kClosed);
  if (step.name == "unload" || (step.name == "close" && hasGraph)) {
    EXPECT_THAT(step.alive, Each(kLeftByDesign));
  } else if (!mayCreateObjects) {
    EXPECT_EQ(step.alive, step.aliveBefore);
  }
  // The module stays loaded while a graph exists.
  EXPECT_EQ(Has(step.alive, "pin of the module"), Has(step.alive, "graph: 1") || Has(step.alive, "graph: 2"));
}

void RunChecker::CheckLeft(const Step& step, Left left) const {
  // A failed creation keeps the encoder of an earlier open.
  const bool keepsEncoder = left == Left::kNothing && Has(step.aliveBefore, "encoder");
  Texts expected = LabelsOf(keepsEncoder ? Left::kEncoder : left);
  expected.insert(expected.end(), m_formats + FormatsReadIn(step), kLeftByDesign);
  // A query of other formats may have found the plug-in camera.
  if (m_hasOtherFormats && Has(step.alive, "plug-in: 1")) {
    std::replace(expected.begin(), expected.end(), "built-in: 1"s, "plug-in: 1"s);
    std::replace(expected.begin(), expected.end(), "built-in.capture: 1"s, "plug-in.capture: 1"s);
  }
  EXPECT_THAT(step.alive, UnorderedElementsAreArray(expected));
}

void RunChecker::UpdateState(const Step& step) {
  m_results.emplace_back(step.name, step.result);
  if (step.name == "open" && m_state == State::kClosed) {
    m_state = StateAfterOpen(step);
  } else if (step.name == "close" && m_state != State::kNoGraph) {
    m_state = State::kClosed;
  } else if (step.name == "query") {
    m_hasCamera = !Has(EventsIn(step), "count 99");
    m_hasOtherFormats = EventsIn(step) != EventsIn(m_usual.at("query"));
  } else if (step.name == "unload") {
    m_state = State::kClosed;
    m_hasCamera = false;
  }
  m_formats += FormatsReadIn(step);
}

void RunChecker::CheckEnd() const {
  ASSERT_GE(m_results.size(), 4U);
  EXPECT_EQ(std::vector(m_results.end() - 4, m_results.end()),
            (std::vector<std::pair<std::string, int>>{
                {"open", NUVEQ_CAMERA_OK}, {"frame", 1}, {"close", NUVEQ_CAMERA_CLOSED}, {"unload", 0}}));
  const scripted::Platform& platform = scripted::Platform::Get();
  EXPECT_EQ(platform.Alive(), Texts(m_formats, kLeftByDesign));
  EXPECT_EQ(platform.CallCount("CoInitialize"), platform.CallCount("CoUninitialize"));
  EXPECT_THAT(platform.Misuse(), IsEmpty());
}

}  // namespace fault
