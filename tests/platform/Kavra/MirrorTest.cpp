#include "Kavra/Mirror.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "Kavra/Feed.h"
#include "Qel/ActivityManager.h"
#include "Qel/Exception.h"
#include "Redundancy/RedundancyStatus.h"
#include "platform/Kavra/Documents.h"
#include "support/DocumentFeed.h"
#include "support/LiveObjects.h"
#include "support/TraceRecorder.h"

namespace Kavra {
namespace {

using kavratest::history;
using kavratest::historyOf;
using kavratest::kHistoryPath;
using kavratest::kHistoryType;
using kavratest::misfitHistory;
using kavratest::redundancy;
using kavratest::Reloads;
using testing::ElementsAre;
using testing::IsEmpty;

// Notes what it hears, and raises each time when told to.
class HistoryWatcher final : public System::ResetCauseHistory::NotifieeConst {
 public:
  HistoryWatcher(const Qel::Ptr<Qel::Entity>& entity, support::TraceRecorder& log) : log_(log) {
    notifierIs(entity);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  using System::ResetCauseHistory::NotifieeConst::onRebootHistory;
  void onRebootHistory(U32 key) override {
    log_.note("onRebootHistory " + std::to_string(key));
    if (raises) throw std::runtime_error("handler of " + std::to_string(key));
  }
  bool raises = false;

 private:
  support::TraceRecorder& log_;
};

class MirrorTest : public support::LiveObjectsTest {
 protected:
  Qel::Ptr<Mirror> mirror() {
    return Qel::make<Mirror>(
        feed_, kHistoryPath, kHistoryType,
        [this](const Qel::Ptr<Qel::Entity>& entity) { log_.note(entity ? "entity" : "null"); });
  }
  void publish(const Qel::Document& document) {
    feed_->documentIs(kHistoryPath, document);
    Qel::activityManager()->run();
  }

  support::TraceRecorder log_;
  Qel::Ptr<support::DocumentFeed> feed_ = Qel::make<support::DocumentFeed>();
};

TEST_F(MirrorTest, HasAnEmptyEntityNamedByThePathAtOnce) {
  const auto mirror = this->mirror();
  ASSERT_TRUE(Qel::ptrCast<System::ResetCauseHistory>(mirror->entity()));
  EXPECT_EQ(mirror->entity()->name(), Qel::Name(kHistoryPath));
  EXPECT_THAT(kavratest::reloadsOf(mirror->entity()), IsEmpty());
}

TEST_F(MirrorTest, FollowsThePathInPlaceAndCallsOnce) {
  const auto mirror = this->mirror();
  const auto entity = mirror->entity();
  publish(history({"one"}));
  EXPECT_EQ(kavratest::reloadsOf(entity), (Reloads{{0, {"one"}}}));
  publish(historyOf(Reloads{{0, {"two", "three"}}, {1, {"one"}}}));
  EXPECT_EQ(kavratest::reloadsOf(entity), (Reloads{{0, {"two", "three"}}, {1, {"one"}}}));
  EXPECT_EQ(mirror->entity(), entity);
  EXPECT_THAT(log_.takeLines(), ElementsAre("entity"));
}

TEST_F(MirrorTest, KeepsTheReloadObjectOfAnIndexThatStays) {
  const auto mirror = this->mirror();
  publish(history({"one"}));
  const auto entity = Qel::ptrCast<System::ResetCauseHistory>(mirror->entity());
  const auto reload = entity->rebootHistory(0);
  publish(history({"two"}));
  EXPECT_EQ(entity->rebootHistory(0), reload);
}

TEST_F(MirrorTest, AppliesNothingForAnUnchangedDocument) {
  const auto mirror = this->mirror();
  publish(history({"one"}));
  const auto watcher = Qel::make<HistoryWatcher>(mirror->entity(), log_);
  log_.clear();
  publish(history({"one"}));
  EXPECT_THAT(log_.takeLines(), IsEmpty());
}

TEST_F(MirrorTest, StaysAsLastSeenWhenThePathIsUnpublished) {
  const auto mirror = this->mirror();
  publish(history({"one"}));
  feed_->documentDel(kHistoryPath);
  EXPECT_EQ(kavratest::reloadsOf(mirror->entity()), (Reloads{{0, {"one"}}}));
  publish(history({"two"}));
  EXPECT_EQ(kavratest::reloadsOf(mirror->entity()), (Reloads{{0, {"two"}}}));
}

TEST_F(MirrorTest, StaysAsItIsForADocumentThatDoesNotFit) {
  const auto mirror = this->mirror();
  publish(misfitHistory());
  EXPECT_THAT(log_.texts(),
              ElementsAre(std::string(kHistoryPath) + ": refused: " + kavratest::kMisfitProblem));
  publish(history({"one"}));
  publish(misfitHistory());
  EXPECT_EQ(kavratest::reloadsOf(mirror->entity()), (Reloads{{0, {"one"}}}));
}

TEST_F(MirrorTest, CallsWithNullWhenAnotherTypeStandsThereFirst) {
  const auto mirror = this->mirror();
  publish(redundancy(3, true));
  EXPECT_THAT(log_.takeLines(), ElementsAre("null"));
}

TEST_F(MirrorTest, CallsWithNullForATypeThatNobodyKnows) {
  const auto mirror = this->mirror();
  publish(Qel::Document::Map{{"type", "Nonsense"}});
  EXPECT_EQ(log_.takeLines().back(), "null");
}

TEST_F(MirrorTest, WaitsWhenADocumentNamesNoType) {
  const auto mirror = this->mirror();
  publish(Qel::Document::Map{{"type", 5U}});
  publish(history({"one"}));
  EXPECT_EQ(log_.lines().back(), "entity");
}

TEST_F(MirrorTest, QuarantinesALaterDocumentOfAnotherType) {
  const auto mirror = this->mirror();
  publish(history({"one"}));
  log_.clear();
  publish(redundancy(3, true));
  const std::string why =
      "of type 'Redundancy::RedundancyStatus' where 'System::ResetCauseHistory' is followed";
  EXPECT_THAT(log_.takeLines(),
              ElementsAre("Kavra 0: " + std::string(kHistoryPath) + ": refused: " + why));
  EXPECT_THAT(feed_->status().quarantined, ElementsAre(Quarantine{kHistoryPath, Qel::String(why)}));
  EXPECT_EQ(kavratest::reloadsOf(mirror->entity()), (Reloads{{0, {"one"}}}));
  publish(history({"two"}));
  EXPECT_THAT(feed_->status().quarantined, IsEmpty());
  EXPECT_EQ(kavratest::reloadsOf(mirror->entity()), (Reloads{{0, {"two"}}}));
}

TEST_F(MirrorTest, LeavesALaterMisfitOfAnotherTypeToTheFeed) {
  const auto mirror = this->mirror();
  publish(history({"one"}));
  log_.clear();
  publish(Qel::Document::Map{{"type", "Nonsense"}});
  EXPECT_EQ(log_.lines().size(), 1U);
  EXPECT_EQ(feed_->status().quarantined.size(), 1U);
  publish(history({"one"}));
  EXPECT_THAT(feed_->status().quarantined, IsEmpty());
  EXPECT_EQ(kavratest::reloadsOf(mirror->entity()), (Reloads{{0, {"one"}}}));
}

TEST_F(MirrorTest, TracesWhatEscapesAHandlerAndAppliesTheRestOfTheDocument) {
  const auto mirror = this->mirror();
  const auto watcher = Qel::make<HistoryWatcher>(mirror->entity(), log_);
  watcher->raises = true;
  publish(historyOf(Reloads{{0, {"one"}}, {1, {"two"}}}));
  const std::string path = kHistoryPath;
  EXPECT_THAT(
      log_.takeLines(),
      ElementsAre("onRebootHistory 0", "Kavra 0: " + path + ": a handler failed: handler of 0",
                  "onRebootHistory 1", "Kavra 0: " + path + ": a handler failed: handler of 1",
                  "entity"));
  EXPECT_EQ(kavratest::reloadsOf(mirror->entity()), (Reloads{{0, {"one"}}, {1, {"two"}}}));
}

TEST_F(MirrorTest, StillAppliesTheOtherDocumentsAfterAHandlerFailed) {
  const auto mirror = this->mirror();
  const auto other =
      Qel::make<Mirror>(feed_, kavratest::kRedundancyPath, kavratest::kRedundancyType);
  const auto watcher = Qel::make<HistoryWatcher>(mirror->entity(), log_);
  watcher->raises = true;
  Qel::activityManager()->run();
  feed_->documentsAre(
      {{kHistoryPath, history({"one"})}, {kavratest::kRedundancyPath, redundancy(3, true)}});
  const auto status = Qel::ptrCast<Redundancy::RedundancyStatus>(other->entity());
  EXPECT_TRUE(status->switchoverCapable());
}

TEST_F(MirrorTest, StopsFollowingWhenItGoesAndLeavesTheEntityAlone) {
  auto mirror = this->mirror();
  const auto entity = mirror->entity();
  publish(history({"one"}));
  mirror = nullptr;
  publish(history({"two"}));
  EXPECT_EQ(kavratest::reloadsOf(entity), (Reloads{{0, {"one"}}}));
}

TEST_F(MirrorTest, MayBeLetGoFromInsideItsCall) {
  Qel::Ptr<Mirror> mirror;
  mirror = Qel::make<Mirror>(feed_, kHistoryPath, kHistoryType,
                             [&](const Qel::Ptr<Qel::Entity>&) { mirror = nullptr; });
  publish(history({"one"}));
  EXPECT_FALSE(mirror);
}

TEST_F(MirrorTest, NeedsAPathAndATypeOfDocuments) {
  EXPECT_THROW(Qel::make<Mirror>(feed_, "/a", kHistoryType), Qel::RangeException);
  EXPECT_THROW(Qel::make<Mirror>(feed_, "a", "Nonsense"), Qel::RangeException);
}

}  // namespace
}  // namespace Kavra
