#include "RunChecker.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>
#include <set>

namespace fault {

namespace {

using ::testing::AnyOfArray;
using ::testing::Each;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using EntryIterator = std::vector<Entry>::const_iterator;
using Texts = std::vector<std::string>;

// Calls that a step may make after the failure that has determined its result.
bool MayFollowFailure(const std::string& call) {
  static const std::set<std::string> enumeration = {
      "CM_Get_Child",          "CM_Get_DevNode_Status",
      "CM_Get_Device_IDA",     "CoGetMalloc",
      "CreateBindCtx",         "IEnumMoniker::Next",
      "IEnumPins::Next",       "IMoniker::GetDisplayName",
      "IPin::QueryDirection",  "SetupDiDestroyDeviceInfoList",
      "SetupDiEnumDeviceInfo", "SetupDiEnumDeviceInterfaces",
      "SetupDiGetClassDevsW",  "SetupDiGetDeviceInterfaceDetailW"};
  const std::string operation = OperationIn(call);
  return !CanFail(operation) || enumeration.contains(operation) ||
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
void CheckRows(const Step& step) {
  const std::vector<Row>& rows = RowsOf(step.name);
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
  auto next = usual.entries.begin();
  for (auto entry = step.entries.begin(); entry != step.entries.end(); ++entry) {
    const std::string operation = OperationIn(entry->text);
    const auto found = std::find_if(next, usual.entries.end(), [&](const Entry& candidate) {
      return candidate.isCall && OperationIn(candidate.text) == operation;
    });
    if (found != usual.entries.end() && (entry < afterFailure || !CanFail(operation))) {
      next = std::next(found);
    } else if (entry->isCall) {
      EXPECT_TRUE(MayFollowFailure(entry->text) && step.name != "close") << entry->text;
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
  const std::optional<Outcome> afterFailure = OutcomeAfterFailure(step.name, m_state, m_hasCamera);
  if (step.failedAllocations == 0 && !afterFailure && !m_hasOtherFormats) {
    const Texts texts = TextsToFailure(step);
    Texts expected = TextsToFailure(usual);
    if (std::any_of(step.entries.begin(), step.entries.end(),
                    [](const Entry& entry) { return entry.fails; })) {
      expected.resize(std::min(expected.size(), texts.size()));
    } else {
      CheckRows(step);
    }
    EXPECT_THAT(texts, ElementsAreArray(expected));
  }
  const Outcome unfailed = afterFailure.value_or(Outcome{usual.result, EventsIn(usual), State::kOpen});
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
    EXPECT_EQ(StateAfterOpen(step), expected.state);
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
  for (const Entry& entry : step.entries) {
    m_formats += OperationIn(entry.text) == "IAMStreamConfig::GetFormat" && !entry.fails ? 1U : 0U;
  }
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
