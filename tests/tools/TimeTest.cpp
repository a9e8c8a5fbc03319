#include "tools/Time.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <ctime>
#include <optional>
#include <string>

namespace Tools {
namespace {

// Where clocks are an hour ahead in winter and two in summer.
class TimeTest : public testing::Test {
 protected:
  TimeTest() { zoneIs("CET-1CEST,M3.5.0,M10.5.0/3"); }
  ~TimeTest() override { zoneIs(was_ ? was_->c_str() : nullptr); }

  static void zoneIs(const char* zone) {
    if (zone == nullptr) {
      ::unsetenv("TZ");
    } else {
      ::setenv("TZ", zone, 1);
    }
    ::tzset();
  }

 private:
  const std::optional<std::string> was_ =
      ::getenv("TZ") == nullptr ? std::nullopt : std::optional<std::string>(::getenv("TZ"));
};

TEST_F(TimeTest, ReadsSeconds) {
  EXPECT_EQ(secondsOf("1700000000.9"), 1700000000.9);
  EXPECT_EQ(secondsOf("-5"), -5.0);
  EXPECT_EQ(secondsOf("1e3"), 1000.0);
}

TEST_F(TimeTest, ReadsTimesInUtcAndWithAnOffset) {
  EXPECT_EQ(secondsOf("1970-01-01T00:00:00Z"), 0.0);
  EXPECT_EQ(secondsOf("2026-11-21T16:00:00Z"), 1795276800.0);
  EXPECT_EQ(secondsOf("2026-11-21T16:00Z"), 1795276800.0);
  EXPECT_EQ(secondsOf("2026-11-21T17:30:00+01:30"), 1795276800.0);
  EXPECT_EQ(secondsOf("2026-11-21T11:00:00-05"), 1795276800.0);
  EXPECT_EQ(secondsOf("2026-11-22T01:00:00+09:00"), 1795276800.0);
  EXPECT_EQ(secondsOf("2024-02-29T23:59:59Z"), 1709251199.0);
  EXPECT_EQ(secondsOf("1969-12-31T23:59:59Z"), -1.0);
}

TEST_F(TimeTest, ReadsFractionsOfASecond) {
  EXPECT_EQ(secondsOf("2026-11-21T16:00:00.5Z"), 1795276800.5);
  EXPECT_EQ(secondsOf("2026-11-21T16:00:00.125+00:00"), 1795276800.125);
  EXPECT_EQ(secondsOf("1969-12-31T23:59:59.75Z"), -0.25);
}

TEST_F(TimeTest, ReadsLocalTimesWhereNoZoneIsNamed) {
  EXPECT_EQ(secondsOf("2026-11-21T17:00:00"), 1795276800.0);
  EXPECT_EQ(secondsOf("2026-07-01T02:00:00.25"), 1782864000.25);
}

TEST_F(TimeTest, RefusesWhatNoCalendarOrClockShows) {
  for (const char* text : {"",
                           "x",
                           "nan",
                           "inf",
                           "1e999",
                           "2026-11-21",
                           "2026-11-21T",
                           "2026-11-21T16",
                           "2026-11-21T16:00:",
                           "2026-11-21T16:00:00.",
                           "2026-11-21T16:00:00.Z",
                           "2026-11-21 16:00:00",
                           "2026-11-21T16:00:00z",
                           "2026-11-21T16:00:00Zx",
                           "2026-11-21T16:00:00+",
                           "2026-11-21T16:00+1",
                           "2026-11-21T16:00:00+01:",
                           "2026-11-21T16:00:00+01:60",
                           "2026-11-21T24:00:00Z",
                           "2026-11-21T16:60:00Z",
                           "2026-11-21T16:00:60Z",
                           "2026-02-29T00:00:00Z",
                           "2026-13-01T00:00:00Z",
                           "2026-00-01T00:00:00Z",
                           "2026-11-00T00:00:00Z",
                           "2026-11-31T00:00:00Z",
                           "26-11-21T16:00:00Z",
                           "2026-1-21T16:00:00Z",
                           "+2026-11-21T16:00:00Z",
                           "2026-11-21T-1:00:00Z",
                           "2026-11-21T16:00:00.-5Z"}) {
    EXPECT_EQ(secondsOf(text), std::nullopt) << text;
  }
}

TEST_F(TimeTest, ReadsWhatItWrites) {
  EXPECT_EQ(timeText(1795276800.9, true), "2026-11-21T16:00:00Z");
  EXPECT_EQ(timeText(1795276800.9, false), "2026-11-21T17:00:00+01:00");
  EXPECT_EQ(timeText(1782864000, false), "2026-07-01T02:00:00+02:00");
  EXPECT_EQ(timeText(-0.5, true), "1969-12-31T23:59:59Z");
  for (const bool utc : {false, true}) {
    EXPECT_EQ(secondsOf(timeText(1782864000, utc)), 1782864000.0);
  }
}

TEST_F(TimeTest, TellsAgesInTheirLargestUnit) {
  EXPECT_EQ(ageText(-3), "0 s");
  EXPECT_EQ(ageText(0.9), "0 s");
  EXPECT_EQ(ageText(119.9), "119 s");
  EXPECT_EQ(ageText(120), "2 min");
  EXPECT_EQ(ageText(7199), "119 min");
  EXPECT_EQ(ageText(7200), "2 h");
  EXPECT_EQ(ageText(172800), "2 d");
}

TEST_F(TimeTest, TellsTimesToTheMinute) {
  EXPECT_EQ(minuteText(1795276859.9, true), "2026-11-21 16:00Z");
  EXPECT_EQ(minuteText(1795276859.9, false), "2026-11-21 17:00");
  EXPECT_EQ(minuteText(-0.5, true), "1969-12-31 23:59Z");
}

TEST_F(TimeTest, ReadsLengthsOfTime) {
  for (const auto& [text, seconds] : std::vector<std::pair<std::string, double>>{{"90", 90},
                                                                                 {"90s", 90},
                                                                                 {"1.5m", 90},
                                                                                 {"30min", 1800},
                                                                                 {"1h", 3600},
                                                                                 {"2d", 172800},
                                                                                 {"1w", 604800}}) {
    EXPECT_EQ(lengthOf(text), seconds) << text;
  }
  for (const char* text : {"", "h", "1 h", "1y", "-1h", "0", "0h", "1hh", "nan", "inf", "1e400",
                           "1e308w", "1h30m", " 1h", "0x10"}) {
    EXPECT_EQ(lengthOf(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace Tools
