#include "Qel/Clock.h"

#include <gtest/gtest.h>

#include <ctime>

#include "Qel/Ptr.h"

namespace {

TEST(ClockTest, TheSystemClockTellsTheTimeOfDay) {
  const auto before = static_cast<double>(std::time(nullptr));
  const double now = Qel::make<Qel::SystemClock>()->now();
  EXPECT_GE(now, before);
  EXPECT_LE(now, static_cast<double>(std::time(nullptr)) + 1.0);
}

}  // namespace
