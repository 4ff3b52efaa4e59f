#include "view/ArrivalWindow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LivePackets.h"

namespace nuveqcam {
namespace {

using std::chrono::milliseconds;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class Arrivals : public ::testing::Test {
 protected:
  // Publishes packets at one interval, the first one now.
  void Publish(int count, milliseconds interval) {
    for (int i = 0; i < count; ++i) {
      stream.Publish(NonIdrSlice(10, begin + i * interval));
    }
  }

  const Clock::time_point begin = Clock::now();
  LiveStream stream;
  ArrivalWindow window{stream};
};

TEST_F(Arrivals, AreThoseOfTheLastFiveSeconds) {
  EXPECT_THAT(window.Arrivals(), IsEmpty());
  Publish(101, milliseconds(100));
  ASSERT_THAT(window.Arrivals(), SizeIs(51));
  EXPECT_EQ(window.Arrivals().front(), begin + milliseconds(5000));
  EXPECT_EQ(window.Arrivals().back(), begin + milliseconds(10000));
}

TEST_F(Arrivals, AreBounded) {
  Publish(5000, milliseconds(1));
  ASSERT_THAT(window.Arrivals(), SizeIs(2048));
  EXPECT_EQ(window.Arrivals().front(), begin + milliseconds(5000 - 2048));
  EXPECT_EQ(window.Arrivals().back(), begin + milliseconds(4999));
}

TEST_F(Arrivals, BelongToOneSession) {
  Publish(10, milliseconds(100));
  stream.EndSession();
  EXPECT_THAT(window.Arrivals(), IsEmpty());
  Publish(2, milliseconds(100));
  EXPECT_THAT(window.Arrivals(), SizeIs(2));
}

}  // namespace
}  // namespace nuveqcam
