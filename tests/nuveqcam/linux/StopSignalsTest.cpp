#include "StopSignals.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

namespace {

TEST(StopSignals, AreNotedInsteadOfEndingTheProcess) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    const StopSignals signals;
    EXPECT_FALSE(signals.HasArrived());
    raise(number);
    EXPECT_TRUE(signals.HasArrived());
  }
}

TEST(StopSignals, SecondOfAKindEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto interruptTwice = [] {
    const StopSignals signals;
    raise(SIGTERM);
    raise(SIGTERM);
  };
  EXPECT_EXIT(interruptTwice(), ::testing::KilledBySignal(SIGTERM), "");
}

TEST(StopSignals, EarlierActionsReturn) {
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGINT, &ignore, nullptr);
  {
    const StopSignals signals;
    raise(SIGINT);
    EXPECT_FALSE(signals.HasArrived());
  }
  struct sigaction now {};
  sigaction(SIGINT, nullptr, &now);
  EXPECT_EQ(now.sa_handler, SIG_IGN);
}

}  // namespace
