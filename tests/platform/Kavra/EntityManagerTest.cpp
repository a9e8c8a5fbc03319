#include "Kavra/EntityManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Kavra/Feed.h"
#include "Qel/ActivityManager.h"
#include "Qel/Exception.h"
#include "platform/Kavra/Documents.h"
#include "support/DocumentFeed.h"
#include "support/LiveObjects.h"
#include "support/TraceRecorder.h"

namespace Kavra {
namespace {

using kavratest::history;
using kavratest::kHistoryType;
using kavratest::Reloads;
using testing::IsEmpty;

class EntityManagerTest : public support::LiveObjectsTest {
 protected:
  static void settle() { Qel::activityManager()->run(); }

  support::TraceRecorder log_;
  Qel::Ptr<support::DocumentFeed> own_ = Qel::make<support::DocumentFeed>();
  Qel::Ptr<support::DocumentFeed> peer_ = Qel::make<support::DocumentFeed>();
  Qel::Ptr<EntityManager> manager_ = Qel::make<EntityManager>(own_, peer_, "cell/2/");
};

TEST_F(EntityManagerTest, GivesAnEmptyEntityThatFollowsItsPath) {
  const auto entity = manager_->entityIs("cell/1/sys/reset/history", kHistoryType);
  EXPECT_THAT(kavratest::reloadsOf(entity), IsEmpty());
  own_->documentIs("cell/1/sys/reset/history", history({"one"}));
  settle();
  EXPECT_EQ(kavratest::reloadsOf(entity), (Reloads{{0, {"one"}}}));
}

TEST_F(EntityManagerTest, FindsThePathsOfThePeerInThePeersDatabase) {
  const auto own = manager_->entityIs("cell/1/h", kHistoryType);
  const auto peer = manager_->entityIs("cell/2/h", kHistoryType);
  const auto later = manager_->entityIs("cell/20/h", kHistoryType);
  for (const char* path : {"cell/1/h", "cell/2/h", "cell/20/h"}) {
    own_->documentIs(path, history({"own"}));
    peer_->documentIs(path, history({"peer"}));
  }
  settle();
  EXPECT_EQ(kavratest::reloadsOf(own), (Reloads{{0, {"own"}}}));
  EXPECT_EQ(kavratest::reloadsOf(peer), (Reloads{{0, {"peer"}}}));
  EXPECT_EQ(kavratest::reloadsOf(later), (Reloads{{0, {"own"}}}));
}

TEST_F(EntityManagerTest, FindsEveryPathInItsOnlyDatabase) {
  const auto manager = Qel::make<EntityManager>(own_);
  EXPECT_EQ(manager->feed("cell/1/h"), own_);
  EXPECT_EQ(manager->feed("cell/2/h"), own_);
}

TEST_F(EntityManagerTest, GivesTheSameEntityForTheSamePathAndType) {
  const auto entity = manager_->entityIs("a", kHistoryType);
  EXPECT_EQ(manager_->entityIs("a", kHistoryType), entity);
  EXPECT_NE(manager_->entityIs("b", kHistoryType), entity);
  EXPECT_NE(manager_->entityIs("a", kavratest::kRedundancyType), entity);
}

TEST_F(EntityManagerTest, FollowsAnEntityThatNobodyElseHolds) {
  manager_->entityIs("a", kHistoryType);
  own_->documentIs("a", history({"one"}));
  settle();
  EXPECT_EQ(kavratest::reloadsOf(manager_->entityIs("a", kHistoryType)), (Reloads{{0, {"one"}}}));
}

TEST_F(EntityManagerTest, LeavesItsEntitiesAsTheyAreWhenItGoes) {
  const auto entity = manager_->entityIs("a", kHistoryType);
  own_->documentIs("a", history({"one"}));
  settle();
  manager_ = nullptr;
  own_->documentIs("a", history({"two"}));
  settle();
  EXPECT_EQ(kavratest::reloadsOf(entity), (Reloads{{0, {"one"}}}));
}

TEST_F(EntityManagerTest, RefusesWhatCannotBeFollowed) {
  EXPECT_THROW(manager_->entityIs("/a", kHistoryType), Qel::RangeException);
  EXPECT_THROW(manager_->entityIs("a", "System::ResetInstance"), Qel::RangeException);
}

TEST_F(EntityManagerTest, NeedsItsFeeds) {
  try {
    Qel::make<EntityManager>(own_, nullptr, "cell/2/");
    FAIL() << "nothing was raised";
  } catch (const Qel::RangeException& error) {
    EXPECT_STREQ(error.what(), "null ValidPtr");
  }
  EXPECT_THROW(Qel::make<EntityManager>(nullptr), Qel::RangeException);
}

}  // namespace
}  // namespace Kavra
