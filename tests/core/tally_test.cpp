#include "core/tally.h"

#include <gtest/gtest.h>

namespace {

TEST(Tally, TheFirstIsDueAtOnceTheOthersTogetherWhenThePeriodIsOver) {
  cv::Tally tally;
  EXPECT_FALSE(tally.take(100).has_value());
  tally.add(3);
  EXPECT_EQ(tally.take(100), 3u);
  tally.add(1);
  tally.add(4);
  EXPECT_FALSE(tally.take(100 + cv::Tally::period_us - 1).has_value());
  EXPECT_EQ(tally.unsaid(), 5u);
  EXPECT_EQ(tally.take(tally.due_us()), 5u);
  EXPECT_FALSE(tally.take(INT64_MAX - cv::Tally::period_us).has_value()) << "nothing came since";
  tally.add(2);
  EXPECT_EQ(tally.take_rest(), 2u);
  EXPECT_EQ(tally.take_rest(), 0u);
}

}  // namespace
