#include "System/ResetCauseHistory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

#include "Qel/Dir.h"
#include "Qel/TypeNode.h"
#include "Watchers.h"
#include "support/LiveObjects.h"

namespace System {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ResetCauseHistoryTest : public support::LiveObjectsTest {
 protected:
  systemtest::Log takeLog() { return std::exchange(log_, {}); }

  systemtest::Log log_;
  const Qel::Ptr<ResetCauseHistory> history_ = Qel::make<ResetCauseHistory>("history");
  const Qel::Ptr<systemtest::HistoryWatcher> watcher_ =
      Qel::make<systemtest::HistoryWatcher>(history_, log_);

  void SetUp() override { log_.clear(); }
};

TEST_F(ResetCauseHistoryTest, MakesAReloadWhereThereIsNone) {
  const auto reload = history_->rebootHistoryIs(3);
  EXPECT_EQ(reload->key(), 3U);
  EXPECT_EQ(history_->rebootHistory(3), reload);
  EXPECT_THAT(takeLog(), ElementsAre("onRebootHistory 3 of 0"));
  EXPECT_EQ(history_->rebootHistoryIs(3), reload);
  EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(ResetCauseHistoryTest, StoresAReloadWithItsCausesAndTellsOnce) {
  const auto reload = Qel::make<ResetInstance>(0U);
  reload->causeQIs({ResetCause("a", 1), ResetCause("b", 2)});
  history_->rebootHistoryIs(reload);
  EXPECT_THAT(takeLog(), ElementsAre("onRebootHistory 0 of 2"));
  history_->rebootHistoryIs(reload);
  EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(ResetCauseHistoryTest, ReplacesAReloadThatHasTheSameIndex) {
  history_->rebootHistoryIs(0);
  takeLog();
  const auto other = Qel::make<ResetInstance>(0U);
  history_->rebootHistoryIs(other);
  EXPECT_EQ(history_->rebootHistory(0), other);
  EXPECT_EQ(history_->rebootHistory().members(), 1U);
  EXPECT_THAT(takeLog(), ElementsAre("onRebootHistory 0 of 0"));
}

TEST_F(ResetCauseHistoryTest, RemovesAReloadAndTellsOnce) {
  const auto reload = history_->rebootHistoryIs(1);
  takeLog();
  EXPECT_EQ(history_->rebootHistoryDel(1), reload);
  EXPECT_THAT(takeLog(), ElementsAre("onRebootHistory 1 gone"));
  EXPECT_FALSE(history_->rebootHistoryDel(1));
  EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(ResetCauseHistoryTest, TellsOfWhatStandsWhenNotificationsComeOn) {
  watcher_->hasNotificationActiveIs(false);
  EXPECT_THAT(takeLog(), IsEmpty());
  watcher_->hasNotificationActiveIs(true);
  EXPECT_THAT(takeLog(), ElementsAre("onRebootHistoryqelImmediate"));
  watcher_->hasNotificationActiveIs(true);
  EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(ResetCauseHistoryTest, TellsAWatcherThatIsNotRegisteredOfNothing) {
  watcher_->isRegisteredNotifieeIs(false);
  watcher_->hasNotificationActiveIs(false);
  watcher_->hasNotificationActiveIs(true);
  history_->rebootHistoryIs(0);
  EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(ResetCauseHistoryTest, TellsNothingOfTheCausesOfItsReloads) {
  const auto reload = history_->rebootHistoryIs(0);
  takeLog();
  reload->causeQPush(ResetCause("a", 1));
  EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(ResetCauseHistoryTest, IsWatchedOnlyByWatchersOfHistories) {
  EXPECT_EQ(watcher_->resetCauseHistory(), history_);
  watcher_->notifierIs(Qel::make<ResetInstance>(0U));
  EXPECT_FALSE(watcher_->notifier());
}

TEST_F(ResetCauseHistoryTest, CanBeMadeInADirectoryByName) {
  const auto dir = Qel::make<Qel::Dir>("sys");
  const auto entity = dir->newEntityIs("System::ResetCauseHistory", "history");
  EXPECT_TRUE(Qel::ptrCast<ResetCauseHistory>(entity));
  EXPECT_EQ(dir->entity("history"), entity);
}

TEST_F(ResetCauseHistoryTest, ShowsItsNameThroughTheRegistry) {
  const Qel::TypeNode* type = history_->fwkType();
  ASSERT_EQ(type, Qel::typeNode("System::ResetCauseHistory"));
  EXPECT_EQ(type->attribute("name")->read(*history_).toString(), "history");
  EXPECT_NE(type->documentCodec(), nullptr);
}

}  // namespace
}  // namespace System
