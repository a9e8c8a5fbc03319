// What the twins have in common, for each of them.
#include "MiscSnmpAgent/ResetInstanceSm.h"

#include <stdexcept>
#include <type_traits>
#include <utility>

#include "MiscSnmpAgent/AgentFixture.h"
#include "Qel/Exception.h"
#include "Qel/GenericIf.h"

namespace MiscSnmp::Agent {

using testing::ElementsAre;
using testing::IsEmpty;

// Both cells show one row a unit; the machines under test are made beside those of the owner, so a
// rebuild shows in the log as the rows of one cell that go and come.
template <class Sm>
class ResetInstanceSmTest : public QuietAgentFixture {
 protected:
  static constexpr bool kIsOwn = std::is_same_v<Sm, CurCellResetInstanceSm>;

  void SetUp() override {
    cellType_ = "linecard";
    cell(1).reloaded({kPowerLoss});
    cell(2).reloaded({kPowerLoss});
    peerIsReachable();
    owner_ = started();
    owner_->curCellResetInstanceSmDelAll();
    owner_->peerCellResetInstanceSmDelAll();
    reload_->causeQPush(kWatchdog);
    log();
  }

  Qel::Ptr<Sm> sm(U32 key, const Qel::Ptr<System::ResetInstance const>& reload) {
    if constexpr (kIsOwn) {
      return CurCellResetInstanceSm::CurCellResetInstanceSmIs(key, reload, owner_);
    } else {
      return PeerCellResetInstanceSm::PeerCellResetInstanceSmIs(key, reload, owner_);
    }
  }
  // A machine that watches reload_; the log begins after that.
  Qel::Ptr<Sm> watching() {
    auto machine = sm(7, reload_);
    log();
    return machine;
  }
  // One rebuild of the own side, and nothing else.
  static auto rebuiltOnce() {
    return kIsOwn ? ElementsAre("- 0.0.1", "+ 0.0.1") : ElementsAre("- 2.0.1", "+ 2.0.1");
  }
  using Reactor = typename Sm::QelResetInstance;
  // A reactor on reload_ for `machine`, beside its own, that is switched on.
  Qel::Ptr<Reactor> reactor(const Qel::Ptr<Sm>& machine) {
    return Qel::make<Reactor>(reload_, machine.get());
  }

  Qel::Ptr<ResetHistorySm> owner_;
  Qel::Ptr<System::ResetInstance> reload_ = Qel::make<System::ResetInstance>(7U);
  Qel::Ptr<System::ResetInstance> other_ = Qel::make<System::ResetInstance>(8U);
};

using Twins = testing::Types<CurCellResetInstanceSm, PeerCellResetInstanceSm>;
TYPED_TEST_SUITE(ResetInstanceSmTest, Twins);

TYPED_TEST(ResetInstanceSmTest, RebuildsTheRowsOfItsCellOnceWhileItIsMade) {
  const auto hook = Qel::make<TableHook>(this->model_, [this](const ReloadCauseKey&) {
    EXPECT_TRUE(this->owner_->curCellResetInstanceSm().empty());
    EXPECT_TRUE(this->owner_->peerCellResetInstanceSm().empty());
  });

  const auto machine = this->sm(7, this->reload_);

  EXPECT_THAT(this->log(), this->rebuiltOnce());
  EXPECT_EQ(machine->key(), 7U);
  EXPECT_EQ(machine->resetInstance(), this->reload_);
  EXPECT_EQ(machine->resetHistorySm(), this->owner_);
  EXPECT_TRUE(this->isOn(machine));
}

TYPED_TEST(ResetInstanceSmTest, HearsNothingBeforeItsFirstRebuildIsDone) {
  bool isRecorded = false;
  const auto hook = Qel::make<TableHook>(this->model_, [&](const ReloadCauseKey&) {
    EXPECT_EQ(reactorOn<typename TestFixture::Reactor>(this->reload_), nullptr);
    if (!std::exchange(isRecorded, true)) this->reload_->causeQPush(kPowerLoss);
  });

  const auto machine = this->sm(7, this->reload_);

  EXPECT_THAT(this->log(), this->rebuiltOnce());
  EXPECT_NE(reactorOn<typename TestFixture::Reactor>(this->reload_), nullptr);
}

TYPED_TEST(ResetInstanceSmTest, WithoutAReloadRebuildsOnceAndNeverReacts) {
  const auto machine = this->sm(7, nullptr);
  EXPECT_THAT(this->log(), this->rebuiltOnce());
  EXPECT_EQ(machine->resetInstance(), nullptr);

  this->reload_->causeQPush(kPowerLoss);
  machine->hasNotificationActiveIs(false);
  machine->hasNotificationActiveIs(true);
  machine->qelDoZombieReactors(true);

  EXPECT_THAT(this->log(), IsEmpty());
}

TYPED_TEST(ResetInstanceSmTest, EveryChangeOfTheCausesRebuildsOnce) {
  const auto machine = this->watching();

  this->reload_->causeQPush(kPowerLoss);
  EXPECT_THAT(this->log(), this->rebuiltOnce());
  this->reload_->causeQDel(1);
  EXPECT_THAT(this->log(), this->rebuiltOnce());
  this->reload_->causeQIs({kPowerLoss, kWatchdog});
  EXPECT_THAT(this->log(), this->rebuiltOnce());
}

TYPED_TEST(ResetInstanceSmTest, EachNotificationRebuildsOnceWhateverItsKey) {
  const auto machine = this->watching();
  const auto reactor = this->reactor(machine);

  for (const U32 key : {0U, 5U, 4294967295U}) {
    reactor->onCauseQ(key);
    EXPECT_THAT(this->log(), this->rebuiltOnce());
  }
  reactor->onCauseQqelImmediate();
  EXPECT_THAT(this->log(), this->rebuiltOnce());
  reactor->onCauseQ();
  reactor->onCauseQMetadata();
  EXPECT_THAT(this->log(), IsEmpty());
}

TYPED_TEST(ResetInstanceSmTest, AReactorMarkedForDeletionDoesNothing) {
  const auto machine = this->watching();
  const auto reactor = this->reactor(machine);
  reactor->qelDoZombieReactors(true);
  EXPECT_FALSE(this->isOn(reactor));

  reactor->onCauseQ(0);
  reactor->onCauseQqelImmediate();
  reactor->notifierIs(this->other_);

  EXPECT_THAT(this->log(), IsEmpty());
  EXPECT_EQ(reactor->resetInstance(), this->other_);
}

TYPED_TEST(ResetInstanceSmTest, AReactorWithoutAnOwnerDoesNothing) {
  const auto machine = this->watching();
  const auto reactor = this->reactor(machine);
  reactor->ownerIs(nullptr);

  reactor->onCauseQ(0);
  reactor->onCauseQqelImmediate();
  reactor->notifierIs(this->other_);

  EXPECT_THAT(this->log(), IsEmpty());
}

TYPED_TEST(ResetInstanceSmTest, AReactorThatIsReboundRebuildsAndFollows) {
  const auto machine = this->watching();
  machine->resetInstanceDel();
  const auto reactor = this->reactor(machine);
  EXPECT_TRUE(this->isOn(reactor));

  reactor->notifierIs(this->reload_);
  EXPECT_THAT(this->log(), IsEmpty());
  reactor->notifierIs(this->other_);
  EXPECT_THAT(this->log(), this->rebuiltOnce());
  this->reload_->causeQPush(kPowerLoss);
  EXPECT_THAT(this->log(), IsEmpty());
  this->other_->causeQPush(kPowerLoss);
  EXPECT_THAT(this->log(), this->rebuiltOnce());

  // Anything but a reload counts as none.
  reactor->notifierIs(this->status_);
  EXPECT_EQ(reactor->resetInstance(), nullptr);
  this->other_->causeQPush(kPowerLoss);
  EXPECT_THAT(this->log(), IsEmpty());
}

TYPED_TEST(ResetInstanceSmTest, AReactorThatIsReboundRebuildsBeforeItIsRegisteredAgain) {
  const auto machine = this->watching();
  const auto reactor = this->reactor(machine);
  const auto hook = Qel::make<TableHook>(this->model_, [&](const ReloadCauseKey&) {
    EXPECT_EQ(reactor->resetInstance(), this->other_);
    EXPECT_FALSE(reactor->isRegisteredNotifiee());
  });

  reactor->notifierIs(this->other_);

  EXPECT_THAT(this->log(), this->rebuiltOnce());
  EXPECT_TRUE(reactor->isRegisteredNotifiee());
}

TYPED_TEST(ResetInstanceSmTest, WatchingThePresentReloadAgainChangesNothing) {
  const auto machine = this->watching();
  machine->resetInstanceIs(this->reload_);
  EXPECT_THAT(this->log(), IsEmpty());
  EXPECT_EQ(machine->resetInstance(), this->reload_);
}

TYPED_TEST(ResetInstanceSmTest, AnotherReloadRebuildsOnceAndIsFollowed) {
  const auto machine = this->watching();

  machine->resetInstanceIs(this->other_);

  EXPECT_THAT(this->log(), this->rebuiltOnce());
  EXPECT_EQ(machine->resetInstance(), this->other_);
  this->reload_->causeQPush(kPowerLoss);
  EXPECT_THAT(this->log(), IsEmpty());
  this->other_->causeQPush(kPowerLoss);
  EXPECT_THAT(this->log(), this->rebuiltOnce());
}

TYPED_TEST(ResetInstanceSmTest, AnotherReloadWakesASilencedReactorOfAMachineThatIsNoZombie) {
  const auto machine = this->watching();
  this->reactor(machine)->qelDoZombieReactors(true);

  machine->resetInstanceIs(this->other_);

  EXPECT_THAT(this->log(), this->rebuiltOnce());
  this->other_->causeQPush(kPowerLoss);
  EXPECT_THAT(this->log(), this->rebuiltOnce());
}

TYPED_TEST(ResetInstanceSmTest, AFirstReloadIsWatchedWithoutARebuild) {
  const auto machine = this->sm(7, nullptr);
  this->log();

  machine->resetInstanceIs(this->reload_);

  EXPECT_THAT(this->log(), IsEmpty());
  EXPECT_EQ(machine->resetInstance(), this->reload_);
  this->reload_->causeQPush(kPowerLoss);
  EXPECT_THAT(this->log(), this->rebuiltOnce());
}

TYPED_TEST(ResetInstanceSmTest, AFirstReloadOfAMachineThatIsOffIsNotHeard) {
  const auto machine = this->sm(7, nullptr);
  machine->hasNotificationActiveIs(false);
  machine->resetInstanceIs(this->reload_);
  this->log();

  this->reload_->causeQPush(kPowerLoss);

  EXPECT_THAT(this->log(), IsEmpty());
}

TYPED_TEST(ResetInstanceSmTest, AFirstReloadOfAZombieIsNotHeard) {
  const auto machine = this->sm(7, nullptr);
  machine->qelDoZombieReactors(true);
  machine->resetInstanceIs(this->reload_);
  this->log();

  this->reload_->causeQPush(kPowerLoss);

  EXPECT_THAT(this->log(), IsEmpty());
}

TYPED_TEST(ResetInstanceSmTest, NullEndsTheWatchWithoutARebuild) {
  const auto machine = this->watching();

  const std::ptrdiff_t before = this->newObjects();

  machine->resetInstanceIs(nullptr);
  machine->resetInstanceIs(nullptr);

  EXPECT_EQ(this->newObjects(), before - 1);
  EXPECT_EQ(machine->resetInstance(), nullptr);
  this->reload_->causeQPush(kPowerLoss);
  EXPECT_THAT(this->log(), IsEmpty());
}

TYPED_TEST(ResetInstanceSmTest, DeletingTheWatchReturnsTheReloadWithoutARebuild) {
  const auto machine = this->watching();

  EXPECT_EQ(machine->resetInstanceDel(), this->reload_);
  EXPECT_EQ(machine->resetInstance(), nullptr);
  EXPECT_EQ(machine->resetInstanceDel(), nullptr);

  this->reload_->causeQPush(kPowerLoss);
  EXPECT_THAT(this->log(), IsEmpty());
}

TYPED_TEST(ResetInstanceSmTest, TheWatchMayEndInsideItsOwnReaction) {
  const auto machine = this->watching();
  const auto hook = Qel::make<TableHook>(
      this->model_, [&](const ReloadCauseKey&) { machine->resetInstanceDel(); });

  machine->resetInstanceIs(this->other_);

  EXPECT_THAT(this->log(), this->rebuiltOnce());
  EXPECT_EQ(machine->resetInstance(), nullptr);
  this->other_->causeQPush(kPowerLoss);
  EXPECT_THAT(this->log(), IsEmpty());
}

TYPED_TEST(ResetInstanceSmTest, MayBeLetGoInsideItsOwnRebuild) {
  auto machine = this->watching();
  const auto hook =
      Qel::make<TableHook>(this->model_, [&](const ReloadCauseKey&) { machine = nullptr; });

  machine->resetInstanceIs(this->other_);
  EXPECT_EQ(ResetInstanceSm::liveCount(), 0U);
  EXPECT_THAT(this->log(), this->rebuiltOnce());

  hook->hasNotificationActiveIs(false);
  machine = this->watching();
  hook->hasNotificationActiveIs(true);
  machine->handleInitialized();
  EXPECT_EQ(ResetInstanceSm::liveCount(), 0U);
  EXPECT_THAT(this->log(), this->rebuiltOnce());
}

TYPED_TEST(ResetInstanceSmTest, SwitchedOffHearsNothingUntilItIsSwitchedOn) {
  const auto machine = this->watching();

  machine->hasNotificationActiveIs(false);
  EXPECT_FALSE(this->isOn(machine));
  this->reload_->causeQPush(kPowerLoss);
  EXPECT_THAT(this->log(), IsEmpty());

  machine->hasNotificationActiveIs(true);
  EXPECT_THAT(this->log(), IsEmpty());
  this->reload_->causeQPush(kPowerLoss);
  EXPECT_THAT(this->log(), this->rebuiltOnce());
}

TYPED_TEST(ResetInstanceSmTest, AZombieHearsNothingUntilItIsNoneAgain) {
  const auto machine = this->watching();

  machine->qelDoZombieReactors(true);
  EXPECT_TRUE(machine->isMarkedForDeletion());
  this->reload_->causeQPush(kPowerLoss);
  machine->resetInstanceIs(this->other_);
  this->other_->causeQPush(kPowerLoss);
  EXPECT_THAT(this->log(), IsEmpty());

  machine->qelDoZombieReactors(false);
  EXPECT_FALSE(machine->isMarkedForDeletion());
  this->other_->causeQPush(kWatchdog);
  EXPECT_THAT(this->log(), this->rebuiltOnce());
}

TYPED_TEST(ResetInstanceSmTest, IsHeardNoMoreOnceItHasGone) {
  auto machine = this->watching();
  machine = nullptr;

  this->reload_->causeQPush(kPowerLoss);

  EXPECT_THAT(this->log(), IsEmpty());
  EXPECT_EQ(ResetInstanceSm::liveCount(), 0U);
}

TYPED_TEST(ResetInstanceSmTest, AReactorThatOutlivesItIsAZombieWithoutAnOwner) {
  auto machine = this->watching();
  const auto reactor = reactorOn<typename TestFixture::Reactor>(this->reload_);

  machine = nullptr;
  EXPECT_TRUE(reactor->isMarkedForDeletion());
  reactor->qelDoZombieReactors(false);
  reactor->onCauseQ(0);

  EXPECT_THAT(this->log(), IsEmpty());
}

TYPED_TEST(ResetInstanceSmTest, AReactorThatItLetsGoIsASilentZombieWithoutAnOwner) {
  const auto machine = this->watching();
  const auto reactor = reactorOn<typename TestFixture::Reactor>(this->reload_);

  machine->resetInstanceDel();
  EXPECT_TRUE(reactor->isMarkedForDeletion());
  EXPECT_FALSE(this->isOn(reactor));
  reactor->qelDoZombieReactors(false);
  reactor->onCauseQ(0);

  EXPECT_THAT(this->log(), IsEmpty());
}

TYPED_TEST(ResetInstanceSmTest, AReactorThatWatchesNothingIsSwitchedOffWhenItIsLetGo) {
  const auto machine = this->watching();
  const auto reactor = reactorOn<typename TestFixture::Reactor>(this->reload_);
  reactor->notifierIs(nullptr);
  ASSERT_TRUE(this->isOn(reactor));

  EXPECT_EQ(machine->resetInstanceDel(), nullptr);

  EXPECT_FALSE(this->isOn(reactor));
}

TYPED_TEST(ResetInstanceSmTest, WhatItIsAlreadyIsNotPassedOn) {
  const auto machine = this->watching();
  const auto reactor = reactorOn<typename TestFixture::Reactor>(this->reload_);
  reactor->qelDoZombieReactors(true);

  machine->qelDoZombieReactors(false);
  EXPECT_TRUE(reactor->isMarkedForDeletion());
  machine->resetInstanceIs(this->reload_);
  EXPECT_TRUE(reactor->isMarkedForDeletion());
  machine->hasNotificationActiveIs(true);
  EXPECT_FALSE(this->isOn(reactor));
}

TYPED_TEST(ResetInstanceSmTest, AnErrorOfTheRebuildPassesThroughTheHandler) {
  const auto machine = this->watching();
  const auto hook = Qel::make<TableHook>(
      this->model_, [](const ReloadCauseKey&) { throw std::runtime_error("no rows"); });
  const U32 references = this->owner_->references();

  EXPECT_THROW(this->reload_->causeQPush(kPowerLoss), std::runtime_error);

  EXPECT_EQ(this->owner_->references(), references);
}

TYPED_TEST(ResetInstanceSmTest, AnErrorOfTheRebuildLeavesNoObject) {
  const auto hook = Qel::make<TableHook>(
      this->model_, [](const ReloadCauseKey&) { throw std::runtime_error("no rows"); });
  const std::ptrdiff_t before = this->newObjects();
  const U32 references = this->owner_->references();

  EXPECT_THROW(this->sm(7, this->reload_), std::runtime_error);

  // One row went and did not come back.
  EXPECT_LT(this->newObjects(), before);
  EXPECT_EQ(ResetInstanceSm::liveCount(), 0U);
  EXPECT_EQ(this->owner_->references(), references);
  EXPECT_NO_THROW(this->reload_->causeQPush(kPowerLoss));
}

TYPED_TEST(ResetInstanceSmTest, HoldsItsOwnerWhileItRebuilds) {
  const auto machine = this->watching();
  U32 duringRebuild = 0;
  const auto hook = Qel::make<TableHook>(
      this->model_, [&](const ReloadCauseKey&) { duringRebuild = this->owner_->references(); });
  const U32 references = this->owner_->references();

  this->reload_->causeQPush(kPowerLoss);

  EXPECT_GT(duringRebuild, references);
  EXPECT_EQ(this->owner_->references(), references);
}

TYPED_TEST(ResetInstanceSmTest, OffersReadingAndItsHandlersByName) {
  const auto machine = this->watching();
  const auto byName = Qel::genericIf(machine);
  const Qel::String update = TestFixture::kIsOwn ? "handleCurCellResetInstanceUpdate"
                                                 : "handlePeerCellResetInstanceUpdate";

  EXPECT_EQ(byName->attributeNames(),
            (std::vector<Qel::String>{"key", "resetInstance", "resetHistorySm"}));
  EXPECT_EQ(byName->attribute("key").toU32(), 7U);
  EXPECT_EQ(byName->attribute("resetInstance").template toPtr<System::ResetInstance const>(),
            this->reload_);
  EXPECT_EQ(byName->attribute("resetHistorySm").template toPtr<ResetHistorySm>(), this->owner_);
  EXPECT_TRUE(byName->operation("handleInitialized", {}).isNothing());
  EXPECT_THAT(this->log(), this->rebuiltOnce());
  EXPECT_TRUE(byName->operation(update, {}).isNothing());
  EXPECT_THAT(this->log(), this->rebuiltOnce());
}

TYPED_TEST(ResetInstanceSmTest, RefusesEveryOtherAccessByName) {
  const auto byName = Qel::genericIf(this->watching());

  for (const char* attribute : {"key", "resetInstance", "resetHistorySm", "owner"}) {
    EXPECT_THROW(byName->attributeIs(attribute, {7U}), Qel::OperationNotSupportedException);
    EXPECT_THROW(byName->attributeDel(attribute), Qel::OperationNotSupportedException);
  }
  EXPECT_THROW(byName->attribute("owner"), Qel::OperationNotSupportedException);
  EXPECT_THROW(byName->operation("resetInstanceDel", {}), Qel::OperationNotSupportedException);
  EXPECT_THROW(byName->operation(TestFixture::kIsOwn ? "handlePeerCellResetInstanceUpdate"
                                                     : "handleCurCellResetInstanceUpdate",
                                 {}),
               Qel::OperationNotSupportedException);
  EXPECT_THROW(byName->type().newObject({}), Qel::OperationNotSupportedException);
  EXPECT_THAT(this->log(), IsEmpty());
}

}  // namespace MiscSnmp::Agent
