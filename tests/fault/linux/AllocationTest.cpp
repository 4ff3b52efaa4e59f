// Every allocation of the library fails, one after another: the function that meets it answers its failure,
// or a log line or a packet is lost; no buffer is, and the host can go on.
#include <gmock/gmock.h>

#include <iostream>

#include "EveryCall.h"
#include "LittleMemoryCourse.h"

namespace {

using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::HasSubstr;

// More allocations than any scenario makes; reached only by one that does not end.
constexpr std::uint64_t kTooManyAllocations = 5000;
// So many that a queue which takes memory as buffers pass has to ask for more.
constexpr unsigned kManyFrames = 200;

class EveryAllocation : public EveryCall {
 protected:
  // One run. True when the allocation of that number was made, and failed.
  bool PlayWithout(std::uint64_t number) const;

  static void ExpectResults(const LittleMemoryCourse& course);
  void ExpectTold(const LittleMemoryCourse& course) const;

  Persistence HowLong() const { return std::get<Persistence>(GetParam()); }
};

void EveryAllocation::ExpectResults(const LittleMemoryCourse& course) {
  // An exception becomes the failure of the function that meets it; the pool answers for itself.
  if (const int open = course.LatestResult("open"); open != kNotCalled) {
    EXPECT_THAT(open, AnyOf(0, -4, -1001, -1004));
  }
  if (const int query = course.LatestResult("query"); query != kNotCalled) {
    EXPECT_THAT(query, AnyOf(0, -1000));
  }
  // Closing needs no memory.
  if (course.LatestResult("open") == 0 && course.LatestResult("close") != kNotCalled) {
    EXPECT_EQ(course.LatestResult("close"), 1);
  }
}

// Where one allocation alone failed, there was memory for the lines that tell of it.
void EveryAllocation::ExpectTold(const LittleMemoryCourse& course) const {
  if (HowLong() == Persistence::kOnce && course.LatestResult("open") == -1004) {
    EXPECT_THAT(course.Trace(), Contains(HasSubstr("AllocBuffer fail.")));
    EXPECT_THAT(course.Trace(), Contains(HasSubstr("fail to init video encoder")));
  }
  if (course.LatestResult("query") == 0) {
    EXPECT_THAT(course.Trace(), Contains("count 1, id \"0\", 15000, 30000, 64x48"));
  }
}

bool EveryAllocation::PlayWithout(std::uint64_t number) const {
  scripted::Platform& platform = scripted::Platform::Get();
  Faults faults;
  LittleMemoryCourse course(faults);
  GetScenario().prepare(course);
  course.BeginToFail(number, HowLong());
  GetScenario().play(course);
  course.FailNothing();
  ExpectResults(course);
  ExpectTold(course);
  const bool hasFailed = course.HasFailed();
  if (!hasFailed) {
    EXPECT_EQ(ResultsIn(course.Trace()), GetScenario().results) << "the end was not reached";
  }
  const unsigned frames = course.DeliveredFrames();
  if (frames != 0 && HowLong() == Persistence::kOnce) {
    EXPECT_GE(HostCallbacks::Get().PacketCount() + 1, frames) << "more than one packet was lost";
  }
  if (course.IsCameraOpen()) {
    course.ExpectWholePool();
  }
  course.RecoverFromAnything();
  EXPECT_EQ(platform.CallCount("CoInitialize"), platform.CallCount("CoUninitialize"));
  EXPECT_THAT(platform.Alive(), ::testing::Each("current media type"));
  EXPECT_THAT(platform.Misuse(), ::testing::IsEmpty());
  platform.DisposeOfAll();
  return hasFailed;
}

TEST_P(EveryAllocation, MayFail) {
  std::uint64_t number = 0;
  do {
    ++number;
    ASSERT_LT(number, kTooManyAllocations);
    const bool hasFailed = PlayWithout(number);
    ASSERT_FALSE(HasFailure()) << "allocation " << number;
    if (!hasFailed) {
      break;
    }
  } while (true);
  std::cout << GetScenario().name << ", no memory: " << number << " runs\n";
  EXPECT_GT(number, 1U) << "nothing has failed";
}

// The camera stays open, for a look at its pool.
Scenario OpenManyFramesScenario() {
  Scenario scenario = OpenScenario();
  scenario.name = "OpenManyFrames";
  scenario.play = [](Course& course) {
    course.Open();
    course.DeliverFrames(kManyFrames);
  };
  return scenario;
}

INSTANTIATE_TEST_SUITE_P(
    Of, EveryAllocation,
    ::testing::Combine(::testing::Values(QueryScenario(), OpenScenario(), OpenManyFramesScenario(),
                                         OpenFramesCloseScenario(), OpenTwiceScenario(),
                                         QueryOpenCloseQueryScenario(), DestroyWhileOpenScenario()),
                       ::testing::Values(Persistence::kOnce, Persistence::kForGood)),
    EveryCall::NameOf);

}  // namespace
