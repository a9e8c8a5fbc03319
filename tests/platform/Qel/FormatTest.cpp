#include "Qel/Format.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "Qel/Types.h"

namespace {

using Qel::format;

TEST(FormatTest, FillsInTextsOfEveryKind) {
  EXPECT_EQ(format("%s %s %s %s", Qel::String("a"), Qel::Name("b"), "c", std::string("d")),
            "a b c d");
}

TEST(FormatTest, FillsInNumbers) {
  EXPECT_EQ(format("cell/%u/sys/reset/history", U32{2}), "cell/2/sys/reset/history");
  EXPECT_EQ(format("%u %d", std::numeric_limits<U32>::max(), -1), "4294967295 -1");
  EXPECT_EQ(format("%.1f", 0.25), "0.2");
}

TEST(FormatTest, LeavesDoubledPercentSignsAndTheirLikesAlone) {
  EXPECT_EQ(format("100%%"), "100%");
  EXPECT_EQ(format("%s", "%s"), "%s");
}

TEST(FormatTest, RefusesADirectiveThatDoesNotFit) {
  EXPECT_THROW(format("%d", "text"), fmt::format_error);
  EXPECT_THROW(format("%s"), fmt::format_error);
}

}  // namespace
