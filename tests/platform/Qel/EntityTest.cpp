#include "Qel/Entity.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/LiveObjects.h"

namespace {

using Qel::make;
using Qel::Ptr;
using testing::ElementsAre;

class Watched : public Qel::Entity {
 public:
  using Entity::Entity;
  ~Watched() override { notifieesDelAll(); }
  void handleParent() override { ++parentChanges; }
  int parentChanges = 0;
};

class EntityWatching : public Qel::Entity::NotifieeConst {
 public:
  EntityWatching(std::vector<std::string>& log, const Ptr<Watched>& watched)
      : NotifieeConst(Qel::NotifierReference::plain), log_(log) {
    notifierIs(watched);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onZeroReferences() override { log_.emplace_back("zero references"); }

 private:
  std::vector<std::string>& log_;
};

class EntityTest : public support::LiveObjectsTest {
 protected:
  Ptr<Watched> entity_ = make<Watched>("child");
  std::vector<std::string> log_;
};

TEST_F(EntityTest, HasANameAndNoParent) {
  EXPECT_EQ(entity_->name(), Qel::Name("child"));
  EXPECT_EQ(entity_->parent(), nullptr);
  EXPECT_TRUE(entity_->parentAttribute().empty());
}

TEST_F(EntityTest, TakesTheNameOfARestoredState) {
  entity_->nameIsFromBackup("restored");
  EXPECT_EQ(entity_->name(), Qel::Name("restored"));
}

TEST_F(EntityTest, HearsOfEachChangeOfItsParentOnce) {
  const auto parent = make<Watched>("parent");
  entity_->parentIs(parent.get(), "agent");
  entity_->parentIs(parent.get(), "agent");
  EXPECT_EQ(entity_->parentChanges, 1);
  EXPECT_EQ(entity_->parent(), parent.get());
  EXPECT_EQ(entity_->parentAttribute(), "agent");
  EXPECT_EQ(parent->references(), 1U) << "the parent is no counted reference";
  entity_->parentIs(nullptr, "");
  EXPECT_EQ(entity_->parentChanges, 2);
}

TEST_F(EntityTest, TellsEveryNotifieeWhenNobodyRefersToItAnyMore) {
  const auto watching = make<EntityWatching>(log_, entity_);
  const auto inactive = make<EntityWatching>(log_, entity_);
  inactive->hasNotificationActiveIs(false);
  entity_ = nullptr;
  EXPECT_THAT(log_, ElementsAre("zero references", "zero references"));
  EXPECT_EQ(watching->notifier(), nullptr);
}

TEST_F(EntityTest, PassesTheEventOnWhateverItSays) {
  const auto watching = make<EntityWatching>(log_, entity_);
  entity_->zeroReferencesIs(false);
  EXPECT_THAT(log_, ElementsAre("zero references"));
}

}  // namespace
