#include "Qel/Assert.h"

#include <gtest/gtest.h>

#include <csignal>

// Built twice: as every test is, and as for a release, where the assertions of the standard library
// are gone and these must stay.
namespace {

TEST(AssertTest, PassesOverWhatIsTrue) {
  int evaluations = 0;
  QEL_ASSERT(++evaluations == 1);
  EXPECT_EQ(evaluations, 1);
}

TEST(AssertTest, EndsTheProcessWithTheTextOfWhatIsFalse) {
  const int rows = 3;
  EXPECT_EXIT(QEL_ASSERT(rows == 2 + 2), testing::KilledBySignal(SIGABRT),
              "^assertion failed: rows == 2 \\+ 2 \\(.*AssertTest.cpp:[0-9]+, TestBody\\)\n$");
}

}  // namespace
