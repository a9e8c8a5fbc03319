#include "Kavra/DirMounter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kavra/Feed.h"
#include "Qel/ActivityManager.h"
#include "Qel/Exception.h"
#include "platform/Kavra/Documents.h"
#include "support/DocumentFeed.h"
#include "support/LiveObjects.h"
#include "support/ManualClock.h"
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
using testing::HasSubstr;
using testing::IsEmpty;

// Notes each completion: the causes of the latest reload, or "null".
class Mounter final : public DirMounter {
 public:
  Mounter(const Qel::Ptr<EntityManager>& manager, const Qel::Ptr<Qel::Clock const>& clock,
          support::TraceRecorder& log, std::function<void()> reaction)
      : DirMounter("", kHistoryPath, kHistoryType, "r", manager, clock),
        log_(log),
        reaction_(std::move(reaction)) {}

  void handleComplete(const Qel::Ptr<Qel::Entity>& complete) override {
    entity = complete;
    std::string line = complete ? "complete" : "complete null";
    for (const auto& [index, causes] : kavratest::reloadsOf(complete)) {
      for (const std::string& cause : causes) line += " " + cause;
    }
    log_.note(line);
    if (reaction_) reaction_();
  }

  Qel::Ptr<Qel::Entity> entity;

 private:
  support::TraceRecorder& log_;
  const std::function<void()> reaction_;
};

class DirMounterTest : public support::LiveObjectsTest {
 protected:
  // A mounter whose notifications are on, as its owner switches them.
  Qel::Ptr<Mounter> mounter(std::function<void()> reaction = {}) {
    auto mounter = Qel::make<Mounter>(manager_, clock_, log_, std::move(reaction));
    mounter->hasNotificationActiveIs(true);
    return mounter;
  }
  Qel::Ptr<Mounter> started(std::function<void()> reaction = {}) {
    auto mounter = this->mounter(std::move(reaction));
    mounter->start();
    return mounter;
  }
  void publish(const Qel::Document& document) { feed_->documentIs(kHistoryPath, document); }
  std::vector<std::string> settled() {
    while (Qel::activityManager()->run() > 0) {
    }
    return log_.takeLines();
  }

  support::TraceRecorder log_;
  const Qel::Ptr<support::ManualClock> clock_ = Qel::make<support::ManualClock>();
  Qel::Ptr<support::DocumentFeed> feed_ = Qel::make<support::DocumentFeed>();
  Qel::Ptr<EntityManager> manager_ = Qel::make<EntityManager>(feed_);
};

TEST_F(DirMounterTest, KnowsWhatItWasMadeWith) {
  const auto mounter = Qel::make<DirMounter>("root", "a/b", kHistoryType, "r", manager_, clock_);
  EXPECT_EQ(mounter->rootPath(), "root");
  EXPECT_EQ(mounter->path(), "a/b");
  EXPECT_EQ(mounter->entityType(), kHistoryType);
  EXPECT_EQ(mounter->mountFlags(), "r");
  EXPECT_EQ(mounter->entityManager(), manager_);
  EXPECT_EQ(mounter->clock(), clock_);
}

TEST_F(DirMounterTest, JoinsRootAndPath) {
  const auto mountPath = [this](const char* root) {
    return Qel::make<DirMounter>(root, "a/b", kHistoryType, "r", manager_, clock_)->mountPath();
  };
  EXPECT_EQ(mountPath(""), "a/b");
  EXPECT_EQ(mountPath("root"), "root/a/b");
  EXPECT_EQ(mountPath("root/"), "root/a/b");
}

TEST_F(DirMounterTest, MountsBelowItsRoot) {
  const auto mounter =
      Qel::make<DirMounter>("cell/2", "sys/reset/history", kHistoryType, "r", manager_, clock_);
  EXPECT_EQ(mounter->mountPath(), kHistoryPath);
  EXPECT_EQ(mounter->name(), Qel::Name(kHistoryPath));
}

TEST_F(DirMounterTest, SupportsOnlyReading) {
  for (const char* flags : {"", "w", "rw", "R"}) {
    try {
      Qel::make<DirMounter>("", "a", kHistoryType, flags, manager_, clock_);
      FAIL() << "nothing was raised for " << flags;
    } catch (const Qel::RangeException& error) {
      EXPECT_THAT(error.what(), HasSubstr("'" + std::string(flags) + "'"));
    }
  }
}

TEST_F(DirMounterTest, CompletesAfterStartNeverFromInsideIt) {
  publish(history({"one"}));
  const auto mounter = started();
  EXPECT_THAT(log_.takeLines(), IsEmpty());
  EXPECT_THAT(settled(), ElementsAre("complete one"));
}

TEST_F(DirMounterTest, WaitsForAPathThatIsNotPublishedYet) {
  const auto mounter = started();
  EXPECT_THAT(settled(), IsEmpty());
  publish(history({"one"}));
  EXPECT_THAT(settled(), ElementsAre("complete one"));
}

TEST_F(DirMounterTest, CompletesOnceWhateverIsPublishedLater) {
  const auto mounter = started();
  publish(history({"one"}));
  settled();
  publish(history({"two"}));
  feed_->documentDel(kHistoryPath);
  publish(history({"three"}));
  EXPECT_THAT(settled(), IsEmpty());
}

TEST_F(DirMounterTest, CompletesWithAnEmptyHistory) {
  publish(historyOf(Reloads{}));
  const auto mounter = started();
  EXPECT_THAT(settled(), ElementsAre("complete"));
}

TEST_F(DirMounterTest, CompletesWithNullAtOnceForADocumentOfAnotherType) {
  publish(redundancy(3, true));
  const auto mounter = started();
  EXPECT_THAT(log_.takeLines(), IsEmpty());
  EXPECT_THAT(settled(), ElementsAre("complete null"));
  publish(history({"one"}));
  EXPECT_THAT(settled(), IsEmpty());
}

TEST_F(DirMounterTest, CompletesWithNullWhenAnotherTypeIsPublishedLater) {
  const auto mounter = started();
  settled();
  publish(redundancy(3, true));
  EXPECT_THAT(settled(), ElementsAre("complete null"));
}

TEST_F(DirMounterTest, PassesOverAMisfitAndWaitsForAGoodDocument) {
  publish(misfitHistory());
  const auto mounter = started();
  EXPECT_THAT(settled(), ElementsAre(HasSubstr("refused")));
  publish(history({"one"}));
  EXPECT_THAT(settled(), ElementsAre(HasSubstr("no longer refused"), "complete one"));
}

TEST_F(DirMounterTest, KeepsTheEntityEqualToItsPathAfterCompletion) {
  publish(history({"one"}));
  const auto mounter = started();
  settled();
  publish(history({"two"}));
  EXPECT_EQ(kavratest::reloadsOf(mounter->entity), (Reloads{{0, {"two"}}}));
}

TEST_F(DirMounterTest, LeavesTheEntityAsLastSeenWhenItIsUnpublished) {
  publish(history({"one"}));
  const auto mounter = started();
  settled();
  feed_->documentDel(kHistoryPath);
  EXPECT_EQ(kavratest::reloadsOf(mounter->entity), (Reloads{{0, {"one"}}}));
}

TEST_F(DirMounterTest, QuarantinesLaterMisfitsAndOtherTypes) {
  publish(history({"one"}));
  const auto mounter = started();
  settled();
  publish(misfitHistory());
  EXPECT_THAT(settled(), ElementsAre(HasSubstr(kavratest::kMisfitProblem)));
  publish(redundancy(3, true));
  EXPECT_THAT(settled(), ElementsAre(HasSubstr("no longer refused"),
                                     HasSubstr("of type 'Redundancy::RedundancyStatus'")));
  EXPECT_EQ(kavratest::reloadsOf(mounter->entity), (Reloads{{0, {"one"}}}));
}

TEST_F(DirMounterTest, GivesTwoMountsOfOnePathTwoEntities) {
  publish(history({"one"}));
  const auto first = started();
  const auto second = started();
  EXPECT_THAT(settled(), ElementsAre("complete one", "complete one"));
  EXPECT_NE(first->entity, second->entity);
  EXPECT_NE(first->entity, manager_->entityIs(kHistoryPath, kHistoryType));
}

TEST_F(DirMounterTest, MountsAfreshWhenItIsStartedAgain) {
  publish(history({"one"}));
  const auto mounter = started();
  settled();
  const auto before = mounter->entity;
  mounter->start();
  EXPECT_THAT(settled(), ElementsAre("complete one"));
  EXPECT_NE(mounter->entity, before);
  publish(history({"two"}));
  EXPECT_EQ(kavratest::reloadsOf(before), (Reloads{{0, {"one"}}}));
}

TEST_F(DirMounterTest, CompletesOnceWhenItIsStartedTwice) {
  publish(history({"one"}));
  const auto mounter = started();
  mounter->start();
  EXPECT_THAT(settled(), ElementsAre("complete one"));
}

TEST_F(DirMounterTest, NeverCompletesAfterItWasDropped) {
  publish(history({"one"}));
  auto mounter = started();
  mounter = nullptr;
  EXPECT_THAT(settled(), IsEmpty());
}

TEST_F(DirMounterTest, IsHeldByNobodyButItsOwner) {
  publish(history({"one"}));
  auto mounter = started();
  EXPECT_EQ(mounter->references(), 1U);
  settled();
  EXPECT_EQ(mounter->references(), 1U);
}

TEST_F(DirMounterTest, WaitsWhileNotificationsAreOff) {
  publish(history({"one"}));
  const auto mounter = this->mounter();
  mounter->hasNotificationActiveIs(false);
  mounter->start();
  EXPECT_THAT(settled(), IsEmpty());
  mounter->hasNotificationActiveIs(true);
  EXPECT_THAT(log_.takeLines(), IsEmpty());
  EXPECT_THAT(settled(), ElementsAre("complete one"));
}

TEST_F(DirMounterTest, WaitsWithNullAsWellWhileNotificationsAreOff) {
  publish(redundancy(3, true));
  const auto mounter = started();
  mounter->hasNotificationActiveIs(false);
  EXPECT_THAT(settled(), IsEmpty());
  mounter->hasNotificationActiveIs(true);
  EXPECT_THAT(settled(), ElementsAre("complete null"));
}

TEST_F(DirMounterTest, HandsOverWhatIsPublishedWhenNotificationsComeOn) {
  publish(history({"one"}));
  const auto mounter = started();
  mounter->hasNotificationActiveIs(false);
  settled();
  publish(history({"two"}));
  mounter->hasNotificationActiveIs(true);
  EXPECT_THAT(settled(), ElementsAre("complete two"));
}

TEST_F(DirMounterTest, WaitsWhenNotificationsGoOffAgainBeforeTheDelivery) {
  publish(history({"one"}));
  const auto mounter = started();
  mounter->hasNotificationActiveIs(false);
  settled();
  mounter->hasNotificationActiveIs(true);
  mounter->hasNotificationActiveIs(false);
  EXPECT_THAT(settled(), IsEmpty());
  mounter->hasNotificationActiveIs(true);
  EXPECT_THAT(settled(), ElementsAre("complete one"));
}

TEST_F(DirMounterTest, CompletesOnceHoweverOftenNotificationsAreSwitched) {
  publish(history({"one"}));
  const auto mounter = started();
  mounter->hasNotificationActiveIs(false);
  settled();
  for (int i = 0; i < 3; ++i) {
    mounter->hasNotificationActiveIs(true);
    mounter->hasNotificationActiveIs(false);
  }
  mounter->hasNotificationActiveIs(true);
  EXPECT_THAT(settled(), ElementsAre("complete one"));
  mounter->hasNotificationActiveIs(false);
  mounter->hasNotificationActiveIs(true);
  EXPECT_THAT(settled(), IsEmpty());
}

TEST_F(DirMounterTest, NeverCompletesAsAZombie) {
  publish(history({"one"}));
  const auto mounter = started();
  mounter->qelDoZombieReactors(true);
  EXPECT_THAT(settled(), IsEmpty());
  mounter->hasNotificationActiveIs(false);
  mounter->hasNotificationActiveIs(true);
  EXPECT_THAT(settled(), IsEmpty());
}

TEST_F(DirMounterTest, CompletesAfterItIsNoZombieAnyMore) {
  publish(history({"one"}));
  const auto mounter = started();
  mounter->qelDoZombieReactors(true);
  settled();
  mounter->qelDoZombieReactors(false);
  EXPECT_THAT(settled(), ElementsAre("complete one"));
}

TEST_F(DirMounterTest, MayBeDroppedFromItsCompletion) {
  publish(history({"one"}));
  Qel::Ptr<Mounter> mounter;
  mounter = started([&] { mounter = nullptr; });
  EXPECT_THAT(settled(), ElementsAre("complete one"));
  EXPECT_FALSE(mounter);
}

TEST_F(DirMounterTest, MayBeDroppedFromACompletionThatWasPutOff) {
  publish(history({"one"}));
  Qel::Ptr<Mounter> mounter;
  mounter = started([&] { mounter = nullptr; });
  mounter->hasNotificationActiveIs(false);
  settled();
  mounter->hasNotificationActiveIs(true);
  EXPECT_THAT(settled(), ElementsAre("complete one"));
  EXPECT_FALSE(mounter);
}

TEST_F(DirMounterTest, MayBeReplacedFromItsCompletion) {
  publish(history({"one"}));
  Qel::Ptr<Mounter> mounter;
  int rounds = 0;
  std::function<void()> replace = [&] {
    if (++rounds < 3) mounter = started(replace);
  };
  mounter = started(replace);
  EXPECT_THAT(settled(), ElementsAre("complete one", "complete one", "complete one"));
}

TEST_F(DirMounterTest, MayBeStartedAgainFromItsCompletion) {
  publish(history({"one"}));
  Qel::Ptr<Mounter> mounter;
  int rounds = 0;
  mounter = started([&] {
    if (++rounds < 3) mounter->start();
  });
  EXPECT_THAT(settled(), ElementsAre("complete one", "complete one", "complete one"));
}

TEST_F(DirMounterTest, TracesWhatEscapesItsCompletion) {
  publish(history({"one"}));
  const auto mounter = started([] { throw std::runtime_error("boom"); });
  const std::string trace = "Kavra 0: " + std::string(kHistoryPath) + ": a handler failed: boom";
  EXPECT_THAT(settled(), ElementsAre("complete one", trace));
  mounter->start();
  mounter->hasNotificationActiveIs(false);
  settled();
  mounter->hasNotificationActiveIs(true);
  EXPECT_THAT(settled(), ElementsAre("complete one", trace));
}

TEST_F(DirMounterTest, OutlivesTheManagersOtherHolders) {
  publish(history({"one"}));
  const auto mounter = started();
  manager_ = nullptr;
  EXPECT_THAT(settled(), ElementsAre("complete one"));
  publish(history({"two"}));
  EXPECT_EQ(kavratest::reloadsOf(mounter->entity), (Reloads{{0, {"two"}}}));
}

TEST_F(DirMounterTest, CannotStartWithoutAManagerAPathOrAType) {
  const auto start = [this](const char* path, const char* type,
                            const Qel::Ptr<EntityManager>& manager) {
    Qel::make<DirMounter>("", path, type, "r", manager, clock_)->start();
  };
  EXPECT_THROW(start("a", kHistoryType, nullptr), Qel::RangeException);
  EXPECT_THROW(start("/a", kHistoryType, manager_), Qel::RangeException);
  EXPECT_THROW(start("a", "Nonsense", manager_), Qel::RangeException);
}

}  // namespace
}  // namespace Kavra
