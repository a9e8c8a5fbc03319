#include "System/ResetCause.h"

#include <gtest/gtest.h>

namespace System {
namespace {

TEST(ResetCauseTest, HoldsWhatThePlatformRecorded) {
  const ResetCause cause("Power loss", 1700000000.9, "Check the supply", "PSU 1");
  EXPECT_EQ(cause.description(), "Power loss");
  EXPECT_EQ(cause.time(), 1700000000.9);
  EXPECT_EQ(cause.recommendedAction(), "Check the supply");
  EXPECT_EQ(cause.detail(), "PSU 1");
}

TEST(ResetCauseTest, IsEmptyAtTimeZeroByDefault) { EXPECT_EQ(ResetCause(), ResetCause("", 0.0)); }

TEST(ResetCauseTest, DiffersInAnyPart) {
  const ResetCause cause("a", 1.0, "b", "c");
  EXPECT_EQ(cause, ResetCause("a", 1.0, "b", "c"));
  EXPECT_NE(cause, ResetCause("x", 1.0, "b", "c"));
  EXPECT_NE(cause, ResetCause("a", 2.0, "b", "c"));
  EXPECT_NE(cause, ResetCause("a", 1.0, "x", "c"));
  EXPECT_NE(cause, ResetCause("a", 1.0, "b", "x"));
}

}  // namespace
}  // namespace System
