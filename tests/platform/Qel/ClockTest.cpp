#include "Qel/Clock.h"

#include <gtest/gtest.h>

#include <ctime>

#include "Qel/Ptr.h"

namespace {

// More than what a double loses of a time of our days, in seconds.
constexpr double kRounding = 1e-6;

// The kernel's own word. std::time() would not do: it is read once a timer tick, and a second late
// for so long.
double realTime() {
  timespec time{};
  EXPECT_EQ(::clock_gettime(CLOCK_REALTIME, &time), 0);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

TEST(ClockTest, TheSystemClockTellsTheTimeOfDay) {
  const auto clock = Qel::make<Qel::SystemClock>();
  const double before = realTime();
  const double now = clock->now();
  const double after = realTime();
  EXPECT_GE(now, before - kRounding);
  EXPECT_LE(now, after + kRounding);
}

}  // namespace
