#include "Qel/EventLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "Qel/ActivityManager.h"
#include "Qel/Exception.h"
#include "support/LiveObjects.h"
#include "support/ManualEventLoop.h"

// The contract of event loops as the loop for tests keeps it, on which other tests rely.
namespace {

using Qel::EventWatch;
using Qel::Ptr;
using testing::ElementsAre;
using testing::IsEmpty;

class ManualEventLoopTest : public support::LiveObjectsTest {
 protected:
  std::function<void()> noting(const std::string& what) {
    return [this, what] { log_.push_back(what); };
  }

  support::ManualEventLoop loop_;
  std::vector<std::string> log_;
};

TEST_F(ManualEventLoopTest, CallsThoseWhoWatchADescriptorThatIsReady) {
  const Ptr<EventWatch> read = loop_.readableIs(5, noting("read 5"));
  const Ptr<EventWatch> write = loop_.writableIs(5, noting("write 5"));
  const Ptr<EventWatch> other = loop_.readableIs(6, noting("read 6"));
  EXPECT_EQ(loop_.descriptors(), 3U);
  EXPECT_TRUE(loop_.isReadWatched(6));
  EXPECT_FALSE(loop_.isWriteWatched(6));
  EXPECT_EQ(loop_.readable(5), 1U);
  EXPECT_EQ(loop_.writable(5), 1U);
  EXPECT_EQ(loop_.readable(7), 0U);
  EXPECT_THAT(log_, ElementsAre("read 5", "write 5"));
}

TEST_F(ManualEventLoopTest, AWatchMayEndItselfAndOthersInACall) {
  Ptr<EventWatch> first;
  Ptr<EventWatch> second;
  first = loop_.readableIs(5, [&] { first = second = nullptr; });
  second = loop_.readableIs(5, noting("second"));
  EXPECT_EQ(loop_.readable(5), 1U);
  EXPECT_EQ(loop_.readable(5), 0U);
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(ManualEventLoopTest, CallsTimersAsTimePasses) {
  const Ptr<EventWatch> late = loop_.timerIs(3.0, noting("late"));
  const Ptr<EventWatch> soon = loop_.timerIs(1.0, noting("soon"));
  EXPECT_EQ(loop_.untilNextTimer(), 1.0);
  EXPECT_EQ(loop_.advance(0.5), 0U);
  EXPECT_EQ(loop_.advance(0.5), 1U);
  EXPECT_EQ(loop_.timers(), 1U);
  EXPECT_EQ(loop_.advance(9.0), 1U);
  EXPECT_EQ(loop_.now(), 10.0);
  EXPECT_EQ(loop_.untilNextTimer(), std::numeric_limits<double>::infinity());
  EXPECT_THAT(log_, ElementsAre("soon", "late"));
}

TEST_F(ManualEventLoopTest, TimersSetMeanwhileComeInTheirTurn) {
  Ptr<EventWatch> next;
  const Ptr<EventWatch> first = loop_.timerIs(1.0, [&] {
    EXPECT_EQ(loop_.now(), 1.0);
    next = loop_.timerIs(1.0, noting("next"));
  });
  const Ptr<EventWatch> last = loop_.timerIs(2.5, noting("last"));
  EXPECT_EQ(loop_.advance(3.0), 3U);
  EXPECT_THAT(log_, ElementsAre("next", "last"));
}

TEST_F(ManualEventLoopTest, SettlesPutOffWorkAndTimersThatAreDue) {
  Ptr<EventWatch> timer;
  const Ptr<Qel::Activity> work = Qel::activityManager()->activityIs(
      [&] { timer = loop_.timerIs(0, noting("timer after work")); });
  loop_.settle();
  EXPECT_THAT(log_, ElementsAre("timer after work"));
}

TEST_F(ManualEventLoopTest, RefusesDescriptorsWhenItIsFull) {
  loop_.mostDescriptorsIs(1);
  const Ptr<EventWatch> first = loop_.readableIs(5, [] {});
  const Qel::RangeExceptionExpectation expected;
  EXPECT_THROW(static_cast<void>(loop_.writableIs(5, [] {})), Qel::RangeException);
}

}  // namespace
