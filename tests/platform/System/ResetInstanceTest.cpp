#include "System/ResetInstance.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "Qel/TypeNode.h"
#include "System/ResetCauseHistory.h"
#include "Watchers.h"
#include "support/LiveObjects.h"

namespace System {
namespace {

using systemtest::causesOf;
using testing::ElementsAre;
using testing::IsEmpty;

class ResetInstanceTest : public support::LiveObjectsTest {
 protected:
  systemtest::Log takeLog() { return std::exchange(log_, {}); }

  systemtest::Log log_;
  const Qel::Ptr<ResetInstance> instance_ = Qel::make<ResetInstance>(7U);
  const Qel::Ptr<systemtest::InstanceWatcher> watcher_ =
      Qel::make<systemtest::InstanceWatcher>(instance_, log_);
};

TEST_F(ResetInstanceTest, HasItsKeyAsItsNameAndNoCauses) {
  EXPECT_EQ(instance_->key(), 7U);
  EXPECT_EQ(instance_->fwkKey(), 7U);
  EXPECT_EQ(instance_->name(), Qel::Name("7"));
  EXPECT_TRUE(instance_->causeQ().empty());
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(ResetInstanceTest, TellsOnceOfEachCauseThatIsAdded) {
  EXPECT_EQ(instance_->causeQPush(ResetCause("a", 1)), 0U);
  EXPECT_EQ(instance_->causeQPush(ResetCause("b", 2)), 1U);
  EXPECT_THAT(takeLog(), ElementsAre("onCauseQ 0", "onCauseQ 1"));
  EXPECT_THAT(causesOf(*instance_), ElementsAre("0 a", "1 b"));
}

TEST_F(ResetInstanceTest, TellsOnceOfACauseThatIsRemoved) {
  instance_->causeQIs({ResetCause("a", 1), ResetCause("b", 2)});
  takeLog();
  EXPECT_TRUE(instance_->causeQDel(0));
  EXPECT_THAT(takeLog(), ElementsAre("onCauseQ 0"));
  EXPECT_FALSE(instance_->causeQDel(0));
  EXPECT_THAT(takeLog(), IsEmpty());
  EXPECT_THAT(causesOf(*instance_), ElementsAre("1 b"));
}

TEST_F(ResetInstanceTest, TellsOnceOfAQueueThatIsReplaced) {
  instance_->causeQIs({ResetCause("a", 1), ResetCause("b", 2)});
  EXPECT_THAT(takeLog(), ElementsAre("onCauseQqelImmediate"));
  instance_->causeQIs({ResetCause("c", 1)});
  EXPECT_THAT(takeLog(), ElementsAre("onCauseQqelImmediate"));
  EXPECT_THAT(causesOf(*instance_), ElementsAre("0 c"));
  instance_->causeQIs({});
  EXPECT_THAT(takeLog(), ElementsAre("onCauseQqelImmediate"));
}

TEST_F(ResetInstanceTest, IsSilentAboutAnEqualQueue) {
  instance_->causeQIs({});
  instance_->causeQIs({ResetCause("a", 1), ResetCause("b", 2)});
  takeLog();
  instance_->causeQIs({ResetCause("a", 1), ResetCause("b", 2)});
  EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(ResetInstanceTest, TellsOfAQueueThatDiffersInOneCause) {
  instance_->causeQIs({ResetCause("a", 1), ResetCause("b", 2)});
  takeLog();
  instance_->causeQIs({ResetCause("a", 1), ResetCause("b", 2.5)});
  EXPECT_THAT(takeLog(), ElementsAre("onCauseQqelImmediate"));
}

TEST_F(ResetInstanceTest, NumbersAReplacedQueueAfreshAfterItsHeadWentAway) {
  instance_->causeQIs({ResetCause("a", 1), ResetCause("b", 2)});
  instance_->causeQDel(0);
  takeLog();
  instance_->causeQIs({ResetCause("b", 2)});
  EXPECT_THAT(takeLog(), ElementsAre("onCauseQqelImmediate"));
  EXPECT_THAT(causesOf(*instance_), ElementsAre("0 b"));
}

TEST_F(ResetInstanceTest, MakesNoCallWhenNotificationsComeOn) {
  instance_->causeQIs({ResetCause("a", 1)});
  takeLog();
  watcher_->hasNotificationActiveIs(false);
  watcher_->hasNotificationActiveIs(true);
  EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(ResetInstanceTest, IsSilentToAWatcherThatIsOff) {
  watcher_->hasNotificationActiveIs(false);
  instance_->causeQPush(ResetCause("a", 1));
  EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(ResetInstanceTest, IsWatchedOnlyByWatchersOfInstances) {
  EXPECT_EQ(watcher_->resetInstance(), instance_);
  watcher_->notifierIs(Qel::make<ResetCauseHistory>("history"));
  EXPECT_FALSE(watcher_->notifier());
  EXPECT_FALSE(watcher_->resetInstance());
}

TEST_F(ResetInstanceTest, ShowsItsKeyThroughTheRegistry) {
  const Qel::TypeNode* type = instance_->fwkType();
  ASSERT_EQ(type, Qel::typeNode("System::ResetInstance"));
  EXPECT_EQ(type->attribute("key")->read(*instance_).toU32(), 7U);
}

}  // namespace
}  // namespace System
