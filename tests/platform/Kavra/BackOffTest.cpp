#include "Kavra/BackOff.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace Kavra {
namespace {

double longestOf(int times) {
  double longest = 0.0;
  for (int i = 0; i < times; ++i) {
    BackOff backOff;
    longest = std::max(longest, backOff.next());
  }
  return longest;
}

TEST(BackOffTest, BeginsWithUpToATenthOfASecond) {
  const double longest = longestOf(1000);
  EXPECT_LE(longest, 0.1);
  EXPECT_GT(longest, 0.08);
}

TEST(BackOffTest, GrowsToFiveSecondsAndNoFurther) {
  BackOff backOff;
  double longest = 0.0;
  for (int i = 0; i < 1000; ++i) longest = std::max(longest, backOff.next());
  EXPECT_LE(longest, 5.0);
  EXPECT_GT(longest, 4.5);
}

TEST(BackOffTest, LeavesNoWaitLongerThanHalfOfAnOutageAndASecond) {
  for (int run = 0; run < 1000; ++run) {
    BackOff backOff;
    double away = 0.0;
    while (away < 60.0) {
      const double wait = backOff.next();
      EXPECT_LE(wait, std::max(away, 1.0) + 1.0);
      away += wait;
    }
  }
}

TEST(BackOffTest, AsksWithinTwoSecondsAfterAnOutageOfFour) {
  for (int run = 0; run < 5000; ++run) {
    BackOff backOff;
    double away = 0.0;
    while (away <= 4.0) away += backOff.next();
    EXPECT_LT(away - 4.0, 1.8);
  }
}

TEST(BackOffTest, BeginsAnewAfterASuccess) {
  BackOff backOff;
  for (int i = 0; i < 100; ++i) backOff.next();
  backOff.reset();
  EXPECT_LE(backOff.next(), 0.1);
}

}  // namespace
}  // namespace Kavra
