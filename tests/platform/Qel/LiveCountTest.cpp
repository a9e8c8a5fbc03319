#include "Qel/LiveCount.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

class Lived : public Qel::LiveCount<Lived> {
 public:
  explicit Lived(bool fails = false) {
    if (fails) throw std::runtime_error("no object");
  }
};
class Other : public Qel::LiveCount<Other> {};

TEST(LiveCountTest, CountsTheLiveObjectsOfItsTypeAlone) {
  EXPECT_EQ(Lived::liveCount(), 0U);
  {
    const Lived first;
    const Lived second;
    EXPECT_EQ(Lived::liveCount(), 2U);
    EXPECT_EQ(Other::liveCount(), 0U);
  }
  EXPECT_EQ(Lived::liveCount(), 0U);
}

TEST(LiveCountTest, AnObjectThatWasNotMadeDoesNotCount) {
  EXPECT_THROW(Lived(true), std::runtime_error);
  EXPECT_EQ(Lived::liveCount(), 0U);
}

}  // namespace
