#include "Qel/LiveCount.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

class Counted : public Qel::LiveCount<Counted> {
 public:
  explicit Counted(bool fails = false) {
    if (fails) throw std::runtime_error("no object");
  }
};
class Other : public Qel::LiveCount<Other> {};

TEST(LiveCountTest, CountsTheLiveObjectsOfItsTypeAlone) {
  EXPECT_EQ(Counted::liveCount(), 0U);
  {
    const Counted first;
    const Counted second;
    EXPECT_EQ(Counted::liveCount(), 2U);
    EXPECT_EQ(Other::liveCount(), 0U);
  }
  EXPECT_EQ(Counted::liveCount(), 0U);
}

TEST(LiveCountTest, AnObjectThatWasNotMadeDoesNotCount) {
  EXPECT_THROW(Counted(true), std::runtime_error);
  EXPECT_EQ(Counted::liveCount(), 0U);
}

}  // namespace
