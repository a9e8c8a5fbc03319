#include "Qel/NotifieeConst.h"

#include <gtest/gtest.h>

#include "Qel/Entity.h"
#include "Qel/NotifieeList.h"
#include "support/LiveObjects.h"

namespace {

using Qel::Entity;
using Qel::make;
using Qel::NotifierReference;
using Qel::Ptr;

class Unobservable : public Qel::PtrInterface {};
class PlainNotifiee : public Qel::PtrInterface::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
};

class NotifieeConstTest : public support::LiveObjectsTest {
 protected:
  Ptr<Entity> entity_ = make<Entity>("watched");
  Ptr<PlainNotifiee> notifiee_ = make<PlainNotifiee>();
};

TEST_F(NotifieeConstTest, WatchesNothingAtFirst) {
  EXPECT_EQ(notifiee_->notifier(), nullptr);
  notifiee_->isRegisteredNotifieeIs(true);
  EXPECT_FALSE(notifiee_->isRegisteredNotifiee());
}

TEST_F(NotifieeConstTest, BindingKeepsTheNotifierAliveAndDoesNotJoin) {
  notifiee_->notifierIs(entity_);
  EXPECT_EQ(notifiee_->notifier(), entity_);
  EXPECT_EQ(entity_->references(), 2U);
  EXPECT_FALSE(notifiee_->isRegisteredNotifiee());
  EXPECT_TRUE(entity_->notifieeList()->empty());
}

TEST_F(NotifieeConstTest, JoinsOnceAndLeavesOnce) {
  notifiee_->notifierIs(entity_);
  notifiee_->isRegisteredNotifieeIs(true);
  notifiee_->isRegisteredNotifieeIs(true);
  EXPECT_EQ(entity_->notifieeList()->size(), 1U);
  notifiee_->isRegisteredNotifieeIs(false);
  notifiee_->isRegisteredNotifieeIs(false);
  EXPECT_TRUE(entity_->notifieeList()->empty());
  EXPECT_EQ(notifiee_->notifier(), entity_);
}

TEST_F(NotifieeConstTest, RebindingLeavesTheOldListAndLetsTheOldNotifierGo) {
  notifiee_->notifierIs(entity_);
  notifiee_->isRegisteredNotifieeIs(true);
  const auto other = make<Entity>("other");
  notifiee_->notifierIs(other);
  EXPECT_TRUE(entity_->notifieeList()->empty());
  EXPECT_EQ(entity_->references(), 1U);
  EXPECT_FALSE(notifiee_->isRegisteredNotifiee());
}

TEST_F(NotifieeConstTest, BindingToThePresentNotifierChangesNothing) {
  notifiee_->notifierIs(entity_);
  notifiee_->isRegisteredNotifieeIs(true);
  notifiee_->notifierIs(entity_);
  EXPECT_TRUE(notifiee_->isRegisteredNotifiee());
  EXPECT_EQ(entity_->references(), 2U);
}

TEST_F(NotifieeConstTest, NullUnbinds) {
  notifiee_->notifierIs(entity_);
  notifiee_->isRegisteredNotifieeIs(true);
  notifiee_->notifierIs(nullptr);
  EXPECT_EQ(notifiee_->notifier(), nullptr);
  EXPECT_FALSE(notifiee_->isRegisteredNotifiee());
  EXPECT_EQ(entity_->references(), 1U);
}

TEST_F(NotifieeConstTest, ThereIsNoListToJoinOnAnObjectThatCannotBeObserved) {
  notifiee_->notifierIs(make<Unobservable>());
  notifiee_->isRegisteredNotifieeIs(true);
  EXPECT_FALSE(notifiee_->isRegisteredNotifiee());
}

TEST_F(NotifieeConstTest, LeavesTheListWhenItEnds) {
  notifiee_->notifierIs(entity_);
  notifiee_->isRegisteredNotifieeIs(true);
  notifiee_ = nullptr;
  EXPECT_TRUE(entity_->notifieeList()->empty());
  EXPECT_EQ(entity_->references(), 1U);
}

TEST_F(NotifieeConstTest, AZombieWithANotifierIsSwitchedToTheOpposite) {
  notifiee_->notifierIs(entity_);
  notifiee_->hasNotificationActiveIs(true);
  notifiee_->qelDoZombieReactors(true);
  EXPECT_TRUE(notifiee_->isMarkedForDeletion());
  EXPECT_FALSE(notifiee_->hasNotificationActive());
  notifiee_->qelDoZombieReactors(false);
  EXPECT_FALSE(notifiee_->isMarkedForDeletion());
  EXPECT_TRUE(notifiee_->hasNotificationActive());
}

TEST_F(NotifieeConstTest, TheSameZombieStateAgainSwitchesNothing) {
  notifiee_->notifierIs(entity_);
  notifiee_->qelDoZombieReactors(false);
  EXPECT_FALSE(notifiee_->hasNotificationActive());
}

TEST_F(NotifieeConstTest, AZombieWithoutNotifierKeepsItsNotificationSwitch) {
  notifiee_->hasNotificationActiveIs(true);
  notifiee_->qelDoZombieReactors(true);
  EXPECT_TRUE(notifiee_->isMarkedForDeletion());
  EXPECT_TRUE(notifiee_->hasNotificationActive());
}

TEST_F(NotifieeConstTest, APlainReferenceDoesNotKeepTheNotifier) {
  const auto plain = make<PlainNotifiee>(NotifierReference::plain);
  plain->notifierIs(entity_);
  plain->isRegisteredNotifieeIs(true);
  EXPECT_EQ(entity_->references(), 1U);
  entity_ = nullptr;
  EXPECT_EQ(plain->notifier(), nullptr);
  EXPECT_FALSE(plain->isRegisteredNotifiee());
}

TEST_F(NotifieeConstTest, APlainBindingThatNeverJoinedEndsWithItsNotifier) {
  const auto plain = make<PlainNotifiee>(NotifierReference::plain);
  plain->notifierIs(entity_);
  entity_ = nullptr;
  EXPECT_EQ(plain->notifier(), nullptr);
}

TEST_F(NotifieeConstTest, APlainBindingThatLeftTheListEndsWithItsNotifier) {
  const auto plain = make<PlainNotifiee>(NotifierReference::plain);
  plain->notifierIs(entity_);
  plain->isRegisteredNotifieeIs(true);
  plain->isRegisteredNotifieeIs(false);
  entity_ = nullptr;
  EXPECT_EQ(plain->notifier(), nullptr);
}

TEST_F(NotifieeConstTest, APlainReferenceToAnUnobservableObjectIsNone) {
  const auto plain = make<PlainNotifiee>(NotifierReference::plain);
  plain->notifierIs(make<Unobservable>());
  EXPECT_EQ(plain->notifier(), nullptr);
}

TEST_F(NotifieeConstTest, ATypedNotifieeBindsToItsTypeAlone) {
  const auto notifiee = make<Entity::NotifieeConst>();
  notifiee->notifierIs(entity_);
  EXPECT_EQ(notifiee->notifier(), entity_);
  notifiee->notifierIs(make<Unobservable>());
  EXPECT_EQ(notifiee->notifier(), nullptr);
}

}  // namespace
