// What is watched is switched off and on, replaced and taken away.
#include "MiscSnmpAgent/ResetHistorySm.h"
#include "MiscSnmpAgent/ResetHistorySmFixture.h"
#include "Qel/ActivityManager.h"
#include "Qel/Exception.h"

namespace MiscSnmp::Agent {

using testing::ElementsAre;
using testing::IsEmpty;

// ---- the switch

TEST_F(ResetHistorySmTest, SwitchedOffHearsNothingOfAnySide) {
  const auto machine = mounted();
  machine->handleRedundancyProtocol();  // a mount under way

  machine->hasNotificationActiveIs(false);
  EXPECT_FALSE(isOn(machine));
  EXPECT_FALSE(isOn(machine->curCellResetInstanceSm()[0]));
  EXPECT_FALSE(isOn(machine->peerCellResetInstanceSm()[0]));
  EXPECT_FALSE(isOn(machine->peerCellResetHistoryStatusDirMounter()));
  log_.levelIs("MiscSnmp", 8);
  cell(1).causeIs(kWatchdog);
  cell(1).reloadIs(1, {});
  cell(2).causeIs(kPowerLoss);
  switchoverCapableIs(false);
  protocolIs(kProtocolWithoutPeer);
  settle();

  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ResetHistorySmTest, SwitchedOnAgainFollowsEverySide) {
  const auto machine = mounted();
  machine->hasNotificationActiveIs(false);
  machine->hasNotificationActiveIs(true);
  EXPECT_TRUE(isOn(machine));
  log();

  cell(1).causeIs(kWatchdog);
  EXPECT_THAT(log(), ElementsAre("- 0.0.1", "- 1.0.1", "+ 0.0.1", "+ 1.0.1", "+ 0.0.2", "+ 1.0.2"));
  cell(2).causeIs(kPowerLoss);
  EXPECT_THAT(log(), ElementsAre("- 2.0.1", "+ 2.0.1", "+ 2.0.2"));
  switchoverCapableIs(false);
  switchoverCapableIs(true);
  EXPECT_THAT(log(), ElementsAre("- 2.0.1", "- 2.0.2", "+ 2.0.1", "+ 2.0.2"));
  protocolIs(kProtocolWithoutPeer);
  EXPECT_THAT(log(), ElementsAre("- 2.0.1", "- 2.0.2"));
  protocolIs(kProtocolWithPeer);
  settle();
  EXPECT_EQ(rows().size(), 6U);
}

TEST_F(ResetHistorySmTest, AMountThatIsDueWhileSwitchedOffCompletesOnceSwitchedOn) {
  cell(2).reloaded({kWatchdog});
  peerIsReachable();
  const auto machine = made();
  machine->hasNotificationActiveIs(false);
  settle();
  EXPECT_THAT(rows(), IsEmpty());

  machine->hasNotificationActiveIs(true);
  settle();

  EXPECT_THAT(rows(), ElementsAre("2.0.1 Watchdog @1700000001"));
}

TEST_F(ResetHistorySmTest, SwitchedOnLooksAtThePeersHistoryThatStands) {
  const auto machine = made();
  switchoverCapableIs(true);
  const auto history = Qel::make<System::ResetCauseHistory>("peer");
  machine->peerCellResetHistoryIs(history);
  history->rebootHistoryIs(0)->causeQPush(kWatchdog);
  EXPECT_TRUE(machine->peerCellResetInstanceSm().empty());

  machine->hasNotificationActiveIs(true);

  EXPECT_EQ(machine->peerCellResetInstanceSm().members(), 1U);
  EXPECT_THAT(rows(), ElementsAre("2.0.1 Watchdog @1700000001"));
}

TEST_F(ResetHistorySmTest, TheSwitchGoesFromTheReactorsToTheMachinesToTheMounter) {
  const auto machine = mounted();
  machine->handleRedundancyProtocol();
  machine->hasNotificationActiveIs(false);
  settle();  // a mount waits for its mounter to be switched on
  machine->curCellResetInstanceSmDelAll();
  machine->peerCellResetInstanceSmDelAll();
  const auto own = machine->curCellResetInstanceSmIs(3, nullptr, machine);
  const auto peer = machine->peerCellResetInstanceSmIs(3, nullptr, machine);
  const auto peerHistory = machine->peerCellResetHistory();
  const auto note = [&](const std::string& when) {
    std::string on = when + ":";
    if (reactorOn<ResetHistorySm::QelRedundancyStatus>(status_)) on += " status";
    if (reactorOn<ResetHistorySm::QelCurCellResetHistory>(history_)) on += " own history";
    if (reactorOn<ResetHistorySm::QelPeerCellResetHistory>(peerHistory)) on += " peer history";
    if (isOn(own)) on += " own machine";
    if (isOn(peer)) on += " peer machine";
    if (isOn(machine->peerCellResetHistoryStatusDirMounter())) on += " mounter";
    log_.note(on);
  };
  const auto hook = Qel::make<TableHook>(model_, [&](const ReloadCauseKey& key) {
    if (!model_->reloadCauseTable()[key]) note("rebuilt");
  });
  Qel::activityManager()->wakeUpIs([&] { note("mount due"); });
  log();

  machine->hasNotificationActiveIs(true);

  Qel::activityManager()->wakeUpIs({});
  EXPECT_THAT(log(),
              ElementsAre("- 0.0.1", "rebuilt: status own history",                        //
                          "- 1.0.1", "rebuilt: status own history", "+ 0.0.1", "+ 1.0.1",  //
                          "- 2.0.1", "rebuilt: status own history peer history", "+ 2.0.1",
                          "mount due: status own history peer history own machine peer machine "
                          "mounter"));
}

// ---- mutators of what is watched

TEST_F(ResetHistorySmTest, WatchingThePresentStatusAgainChangesNothing) {
  const auto machine = mounted();
  log_.levelIs("MiscSnmp", 8);

  machine->redundancyStatusIs(status_);
  machine->curCellResetHistoryIs(history_);
  machine->peerCellResetHistoryIs(machine->peerCellResetHistory());

  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ResetHistorySmTest, AReplacedStatusIsActedOnAndTheOldOneForgotten) {
  const auto machine = mounted();
  const auto other = Qel::make<Redundancy::RedundancyStatus>("other");

  machine->redundancyStatusIs(other);
  EXPECT_THAT(log(), ElementsAre("- 2.0.1"));
  EXPECT_EQ(machine->redundancyStatus(), other);

  status_->statusIs(kProtocolWithoutPeer, false);
  status_->statusIs(kProtocolWithPeer, true);
  settle();
  EXPECT_THAT(log(), IsEmpty());

  other->statusIs(kProtocolWithPeer, true);
  settle();
  EXPECT_EQ(rows().size(), 3U);
}

TEST_F(ResetHistorySmTest, AStatusThatIsWatchedAnewIsActedOnAndFollowed) {
  const auto machine = mounted();

  EXPECT_EQ(machine->redundancyStatusDel(), status_);
  EXPECT_EQ(machine->redundancyStatus(), nullptr);
  EXPECT_EQ(machine->redundancyStatusDel(), nullptr);
  protocolIs(kProtocolWithoutPeer);
  EXPECT_THAT(log(), IsEmpty());

  machine->redundancyStatusIs(status_);
  EXPECT_THAT(log(), ElementsAre("- 2.0.1"));
  protocolIs(kProtocolWithPeer);
  settle();
  EXPECT_THAT(log(), ElementsAre("+ 2.0.1", "- 2.0.1", "+ 2.0.1"));
}

TEST_F(ResetHistorySmTest, NullEndsTheWatch) {
  const auto machine = mounted();
  log_.levelIs("MiscSnmp", 8);

  const std::ptrdiff_t before = newObjects();

  machine->redundancyStatusIs(nullptr);
  machine->curCellResetHistoryIs(nullptr);
  EXPECT_EQ(newObjects(), before - 2);
  EXPECT_EQ(machine->redundancyStatus(), nullptr);
  EXPECT_EQ(machine->curCellResetHistory(), nullptr);
  switchoverCapableIs(false);
  cell(1).reloadIs(2, {});
  machine->handleCurCellResetHistoryUpdate();

  EXPECT_THAT(log(), ElementsAre("MiscSnmp 8: void MiscSnmp::Agent::ResetHistorySm::"
                                 "handleCurCellResetHistoryUpdate() Enter: "));
}

TEST_F(ResetHistorySmTest, AMachineThatIsOffTakesOnAStatusThatItDoesNotHear) {
  const auto machine = made();
  machine->redundancyStatusDel();
  machine->redundancyStatusIs(status_);

  protocolIs(kProtocolWithPeer);

  EXPECT_EQ(machine->peerCellResetHistoryStatusDirMounter(), nullptr);
}

TEST_F(ResetHistorySmTest, WhatAZombieTakesOnItNeitherActsOnNorHears) {
  const auto machine = started();
  machine->redundancyStatusDel();
  machine->curCellResetHistoryDel();
  protocolIs(kProtocolWithPeer);
  cell(1).reloaded({kPowerLoss});
  const auto peerHistory = historyWith(kWatchdog);
  machine->qelDoZombieReactors(true);

  machine->redundancyStatusIs(status_);
  machine->curCellResetHistoryIs(history_);
  EXPECT_EQ(machine->peerCellResetHistoryStatusDirMounter(), nullptr);
  machine->peerCellResetHistoryIs(peerHistory);
  EXPECT_EQ(ResetInstanceSm::liveCount(), 0U);
  log_.levelIs("MiscSnmp", 8);
  switchoverCapableIs(true);
  history_->rebootHistoryIs(1);
  peerHistory->rebootHistoryIs(1);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ResetHistorySmTest, AnOwnHistoryThatIsWatchedAnewIsFollowed) {
  const auto machine = started();
  EXPECT_EQ(machine->curCellResetHistoryDel(), history_);
  EXPECT_EQ(machine->curCellResetHistoryDel(), nullptr);
  cell(1).reloaded({kPowerLoss});
  EXPECT_THAT(log(), IsEmpty());

  machine->curCellResetHistoryIs(history_);
  EXPECT_THAT(log(), ElementsAre("+ 0.0.1", "+ 1.0.1"));

  cell(1).reloadDel(0);
  EXPECT_TRUE(machine->curCellResetInstanceSm().empty());
}

TEST_F(ResetHistorySmTest, AReplacedOwnHistoryIsFollowedAndTheOldOneForgotten) {
  const auto machine = started();
  const auto other = historyWith(kWatchdog);

  machine->curCellResetHistoryIs(other);
  EXPECT_THAT(rows(), ElementsAre("0.0.1 Watchdog @1700000001", "1.0.1 Watchdog @1700000001"));
  log();

  cell(1).reloaded({kPowerLoss});
  EXPECT_THAT(log(), IsEmpty());
  other->rebootHistoryDel(0);
  EXPECT_TRUE(machine->curCellResetInstanceSm().empty());
}

TEST_F(ResetHistorySmTest, AnOwnHistoryWithAnotherLatestReloadIsRefusedWhileTheFirstIsWatched) {
  cell(1).reloaded({kPowerLoss});
  const auto machine = started();
  const auto other = historyWith(kWatchdog);

  EXPECT_EQ(
      support::problemOf<Qel::NameInUseException>([&] { machine->curCellResetHistoryIs(other); }),
      inUseText("_resetInstance", other->rebootHistory(0).get(), history_->rebootHistory(0).get(),
                "System::ResetInstance"));
}

TEST_F(ResetHistorySmTest, APeersHistoryIsReplacedAndRebuiltAtOnce) {
  switchoverCapableIs(true);
  const auto machine = started();
  const auto first = historyWith(kPowerLoss);
  const auto second = historyWith(kWatchdog);
  machine->peerCellResetHistoryIs(first);
  EXPECT_THAT(rows(), ElementsAre("2.0.1 Power loss @1700000000"));
  log();

  machine->peerCellResetHistoryIs(second);
  EXPECT_EQ(machine->peerCellResetHistory(), second);
  EXPECT_THAT(log(), ElementsAre("- 2.0.1", "+ 2.0.1"));
  EXPECT_THAT(rows(), ElementsAre("2.0.1 Watchdog @1700000001"));

  // The first one is heard no more, the second is.
  machine->deletePeerCellResetInstanceSm();
  first->rebootHistoryIs(3);
  EXPECT_TRUE(machine->peerCellResetInstanceSm().empty());
  second->rebootHistoryIs(3);
  EXPECT_EQ(machine->peerCellResetInstanceSm()[0]->resetInstance(), second->rebootHistory(0));
}

TEST_F(ResetHistorySmTest, APeersHistoryIsDroppedAndItsRowsStay) {
  const auto machine = mounted();
  const auto peerHistory =
      Qel::ptrCast<System::ResetCauseHistory const>(machine->peerCellResetHistory());
  log_.levelIs("MiscSnmp", 8);

  EXPECT_EQ(machine->peerCellResetHistoryDel(), peerHistory);
  EXPECT_EQ(machine->peerCellResetHistory(), nullptr);
  EXPECT_EQ(machine->peerCellResetHistoryDel(), nullptr);
  cell(2).reloadIs(3, {});

  EXPECT_THAT(log(), IsEmpty());
  EXPECT_EQ(rows().size(), 3U);
}

TEST_F(ResetHistorySmTest, NullForThePeersHistoryEndsTheWatchAndLooksAtThePeer) {
  const auto machine = mounted();
  log_.levelIs("MiscSnmp", 8);

  machine->peerCellResetHistoryIs(nullptr);
  EXPECT_THAT(log(), ElementsAre("MiscSnmp 1: void MiscSnmp::Agent::ResetHistorySm::"
                                 "handlePeerCellResetHistory() switchoverCapable : 1",
                                 "MiscSnmp 1: void MiscSnmp::Agent::ResetHistorySm::"
                                 "handlePeerCellResetHistory() peerCellResetHistory : null"));
  cell(2).reloadIs(3, {});
  machine->peerCellResetHistoryIs(nullptr);

  EXPECT_THAT(log(), IsEmpty());
  EXPECT_EQ(rows().size(), 3U);
}

TEST_F(ResetHistorySmTest, AMachineThatIsOffTakesOnAPeersHistoryThatItDoesNotHear) {
  switchoverCapableIs(true);
  const auto machine = made();
  const auto history = Qel::make<System::ResetCauseHistory>("peer");
  machine->peerCellResetHistoryIs(history);

  history->rebootHistoryIs(0);

  EXPECT_TRUE(machine->peerCellResetInstanceSm().empty());
}

}  // namespace MiscSnmp::Agent
