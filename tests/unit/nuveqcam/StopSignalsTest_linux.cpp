#include "cli/StopSignals.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

namespace nuveqcam {
namespace {

TEST(StopSignals, SetAFlagInsteadOfEndingTheProcess) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    const StopSignals signals;
    EXPECT_FALSE(signals.HasArrived());
    raise(number);
    EXPECT_TRUE(signals.HasArrived());
  }
}

TEST(StopSignals, SecondSignalOfAKindEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto interruptTwice = [] {
    const StopSignals signals;
    raise(SIGTERM);
    raise(SIGTERM);
  };
  EXPECT_EXIT(interruptTwice(), ::testing::KilledBySignal(SIGTERM), "");
}

TEST(StopSignals, DoNotEndAProcessThatIsExiting) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto interruptTheEnd = [] {
    {
      // Destroyed at once.
      const StopSignals signals;
    }
    raise(SIGTERM);
    std::exit(7);  // NOLINT(concurrency-mt-unsafe): there is no other thread
  };
  EXPECT_EXIT(interruptTheEnd(), ::testing::ExitedWithCode(7), "");
}

TEST(StopSignals, IgnoredSignalsStayIgnored) {
  struct sigaction ignore = {};
  ignore.sa_handler = SIG_IGN;
  struct sigaction earlier = {};
  sigaction(SIGINT, &ignore, &earlier);
  const StopSignals signals;
  raise(SIGINT);
  EXPECT_FALSE(signals.HasArrived());
  struct sigaction now = {};
  sigaction(SIGINT, &earlier, &now);
  EXPECT_EQ(now.sa_handler, SIG_IGN);
}

}  // namespace
}  // namespace nuveqcam
