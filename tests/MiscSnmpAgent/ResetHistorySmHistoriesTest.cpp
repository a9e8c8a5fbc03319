// How the two cells' histories become rows.
#include <stdexcept>
#include <utility>

#include "MiscSnmpAgent/AgentFixture.h"
#include "MiscSnmpAgent/ResetHistorySm.h"
#include "Qel/Exception.h"

namespace MiscSnmp::Agent {

using testing::ElementsAre;
using testing::IsEmpty;

class ResetHistorySmHistories : public QuietAgentFixture {
 protected:
  Qel::Ptr<ResetHistorySm> mounted() {
    peerIsReachable();
    auto machine = started();
    log();
    return machine;
  }
};

TEST_F(ResetHistorySmHistories, ASupervisorShowsItsCausesUnderZeroAndItsOwnId) {
  cell(1).reloaded({kPowerLoss, kWatchdog, kPanic});

  const auto machine = made();

  EXPECT_THAT(rows(), ElementsAre("0.0.1 Power loss @1700000000", "0.0.2 Watchdog @1700000001",
                                  "0.0.3 Panic @1700000002", "1.0.1 Power loss @1700000000",
                                  "1.0.2 Watchdog @1700000001", "1.0.3 Panic @1700000002"));
}

TEST_F(ResetHistorySmHistories, Supervisor2ShowsItsCausesUnderZeroAndTwo) {
  Cell::cellIdIs(2);
  cell(2).reloaded({kPowerLoss});

  const auto machine = made();

  EXPECT_THAT(rows(), ElementsAre("0.0.1 Power loss @1700000000", "2.0.1 Power loss @1700000000"));
}

TEST_F(ResetHistorySmHistories, AnyOtherCellShowsItsCausesUnderZeroAlone) {
  cell(1).reloaded({kPowerLoss, kWatchdog});
  for (const char* type : {"linecard", "", "Supervisor", "supervisor "}) {
    cellType_ = type;
    const auto machine = made();
    EXPECT_THAT(rows(), ElementsAre("0.0.1 Power loss @1700000000", "0.0.2 Watchdog @1700000001"));
  }
}

TEST_F(ResetHistorySmHistories, ThePeersCausesShowUnderItsOwnIdAlone) {
  cell(2).reloaded({kPowerLoss, kWatchdog, kPanic});

  const auto machine = mounted();

  EXPECT_THAT(rows(), ElementsAre("2.0.1 Power loss @1700000000", "2.0.2 Watchdog @1700000001",
                                  "2.0.3 Panic @1700000002"));
}

TEST_F(ResetHistorySmHistories, AReloadWithoutCausesWritesNoRow) {
  cell(1).reloaded({});
  const auto machine = started();
  EXPECT_THAT(rows(), IsEmpty());
  EXPECT_EQ(machine->curCellResetInstanceSm().members(), 1U);
}

TEST_F(ResetHistorySmHistories, APeersReloadWithoutCausesRemovesItsRows) {
  cell(2).reloaded({kPowerLoss});
  const auto machine = mounted();

  cell(2).reloaded({});

  EXPECT_THAT(log(), ElementsAre("- 2.0.1"));
}

TEST_F(ResetHistorySmHistories, OlderReloadsAreNeverPublished) {
  for (const U32 id : {1U, 2U}) {
    cell(id).reloadIs(1, {kPowerLoss});
    cell(id).reloadIs(2, {kWatchdog});
  }

  const auto machine = mounted();
  cell(1).reloadIs(1, {kPanic});
  cell(2).reloadIs(1, {kPanic});

  EXPECT_THAT(rows(), IsEmpty());
  EXPECT_TRUE(machine->curCellResetInstanceSm().empty());
  EXPECT_TRUE(machine->peerCellResetInstanceSm().empty());
}

TEST_F(ResetHistorySmHistories, WritingTheOwnRowsRemovesNone) {
  cell(1).reloaded({kPowerLoss});
  const auto machine = made();
  rowIs({0, 0, 5});
  log();

  machine->handleCurCellResetHistory();

  EXPECT_THAT(log(), IsEmpty());
  EXPECT_EQ(rows().size(), 3U);
}

TEST_F(ResetHistorySmHistories, WritingThePeersRowsRemovesThemFirst) {
  cell(2).reloaded({kPowerLoss});
  const auto machine = mounted();
  rowIs({2, 0, 5});
  rowIs({1, 0, 5});
  log();

  machine->handlePeerCellResetHistory();

  EXPECT_THAT(log(), ElementsAre("- 2.0.1", "- 2.0.5", "+ 2.0.1"));
}

TEST_F(ResetHistorySmHistories, APeerThatCannotTakeOverKeepsItsRows) {
  cell(2).reloaded({kPowerLoss});
  const auto machine = mounted();

  switchoverCapableIs(false);

  EXPECT_THAT(log(), IsEmpty());
  EXPECT_THAT(rows(), ElementsAre("2.0.1 Power loss @1700000000"));
}

TEST_F(ResetHistorySmHistories, ACauseOfAPeerThatCannotTakeOverTakesItsRowsAway) {
  cell(2).reloaded({kPowerLoss});
  const auto machine = mounted();
  switchoverCapableIs(false);

  cell(2).causeIs(kWatchdog);
  EXPECT_THAT(rows(), IsEmpty());

  switchoverCapableIs(true);
  EXPECT_THAT(rows(), ElementsAre("2.0.1 Power loss @1700000000", "2.0.2 Watchdog @1700000001"));
}

TEST_F(ResetHistorySmHistories, TheOwnMachineFollowsEntryZero) {
  const auto machine = started();

  cell(1).reloaded({kPowerLoss});
  EXPECT_EQ(machine->curCellResetInstanceSm()[0]->resetInstance(), history_->rebootHistory(0));
  cell(1).reloadDel(0);
  EXPECT_TRUE(machine->curCellResetInstanceSm().empty());
  EXPECT_EQ(rows().size(), 2U);

  cell(1).reloaded({kWatchdog});
  EXPECT_EQ(machine->curCellResetInstanceSm()[0]->resetInstance(), history_->rebootHistory(0));
  EXPECT_THAT(rows(), ElementsAre("0.0.1 Watchdog @1700000001", "1.0.1 Watchdog @1700000001"));
}

TEST_F(ResetHistorySmHistories, TheOwnMachineGoesWithEntryZeroBesideOtherReloads) {
  const auto machine = started();
  cell(1).reloadIs(1, {kPanic});
  cell(1).reloaded({kPowerLoss});

  cell(1).reloadDel(0);

  EXPECT_TRUE(machine->curCellResetInstanceSm().empty());
}

TEST_F(ResetHistorySmHistories, AKeyWithoutAReloadEndsTheOwnMachine) {
  cell(1).reloaded({kPowerLoss});
  const auto machine = started();
  machine->hasNotificationActiveIs(false);
  cell(1).reloadDel(0);
  ASSERT_EQ(machine->curCellResetInstanceSm().members(), 1U);

  machine->handleCurCellResetHistoryUpdate(4);
  EXPECT_EQ(machine->curCellResetInstanceSm().members(), 1U);
  machine->handleCurCellResetHistoryUpdate(0);

  EXPECT_TRUE(machine->curCellResetInstanceSm().empty());
}

TEST_F(ResetHistorySmHistories, AReloadReplacedUnderEntryZeroIsRefusedWhileTheFirstIsWatched) {
  cell(1).reloaded({kPowerLoss});
  const auto machine = started();

  EXPECT_THROW(history_->rebootHistoryIs(Qel::make<System::ResetInstance>(0U)),
               Qel::NameInUseException);
  EXPECT_EQ(rows().size(), 2U);
}

TEST_F(ResetHistorySmHistories, ThePeersMachineIsNeitherReplacedNorDoubled) {
  const auto machine = mounted();
  const auto history = Qel::make<System::ResetCauseHistory>("peer");
  history->rebootHistoryIs(0)->causeQPush(kPowerLoss);
  machine->peerCellResetHistoryIs(history);
  const auto first = machine->peerCellResetInstanceSm()[0];
  log();

  history->rebootHistoryIs(Qel::make<System::ResetInstance>(0U));
  history->rebootHistoryIs(3);
  history->rebootHistoryDel(0);

  EXPECT_EQ(machine->peerCellResetInstanceSm()[0], first);
  EXPECT_EQ(machine->peerCellResetInstanceSm().members(), 1U);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ResetHistorySmHistories, AKeyOfAPeerWithoutAHistoryIsPassedOver) {
  const auto machine = made();
  log_.levelIs("MiscSnmp", 8);

  machine->handlePeerCellResetHistoryUpdate(0);
  machine->handlePeerCellResetHistoryUpdate();

  EXPECT_THAT(log(), ElementsAre("MiscSnmp 8: void MiscSnmp::Agent::ResetHistorySm::"
                                 "handlePeerCellResetHistoryUpdate(U32) key : 0",
                                 "MiscSnmp 8: void MiscSnmp::Agent::ResetHistorySm::"
                                 "handlePeerCellResetHistoryUpdate() Enter: "));
  EXPECT_TRUE(machine->peerCellResetInstanceSm().empty());
}

TEST_F(ResetHistorySmHistories, AKeyOfAPeerWithoutThatReloadGetsAMachineThatWatchesNothing) {
  const auto machine = mounted();
  machine->peerCellResetHistoryIs(Qel::make<System::ResetCauseHistory>("peer"));

  machine->handlePeerCellResetHistoryUpdate(0);

  EXPECT_EQ(machine->peerCellResetInstanceSm()[0]->resetInstance(), nullptr);
}

// ---- changes from inside the walks

TEST_F(ResetHistorySmHistories, ACauseRecordedWhileRowsAreWrittenIsWrittenToo) {
  const auto reload = history_->rebootHistoryIs(0);
  reload->causeQPush(kPowerLoss);
  reload->causeQPush(kWatchdog);
  const auto machine = made();
  machine->deleteCurCellResetHistory();
  bool isRecorded = false;
  const auto hook = Qel::make<TableHook>(model_, [&](const ReloadCauseKey& key) {
    if (key == ReloadCauseKey(0, 0, 2) && !std::exchange(isRecorded, true)) {
      reload->causeQDel(0);
      reload->causeQPush(kPanic);
    }
  });
  log();

  machine->handleCurCellResetHistory();

  EXPECT_THAT(log(), ElementsAre("+ 0.0.1", "+ 1.0.1", "+ 0.0.2", "+ 1.0.2", "+ 0.0.3", "+ 1.0.3"));
}

TEST_F(ResetHistorySmHistories, AReloadReplacedWhileThePeersRowsGoIsTheOneWritten) {
  const auto machine = mounted();
  const auto history = Qel::make<System::ResetCauseHistory>("peer");
  history->rebootHistoryIs(0)->causeQPush(kPowerLoss);
  machine->peerCellResetHistoryIs(history);
  const auto other = Qel::make<System::ResetInstance>(0U);
  other->causeQPush(kPanic);
  const auto hook =
      Qel::make<TableHook>(model_, [&](const ReloadCauseKey&) { history->rebootHistoryIs(other); });

  machine->handlePeerCellResetHistory();

  EXPECT_THAT(rows(), ElementsAre("2.0.1 Panic @1700000002"));
}

TEST_F(ResetHistorySmHistories, AReloadForgottenWhileThePeersRowsGoIsNotWritten) {
  const auto machine = mounted();
  const auto history = Qel::make<System::ResetCauseHistory>("peer");
  history->rebootHistoryIs(0)->causeQPush(kPowerLoss);
  machine->peerCellResetHistoryIs(history);
  const auto hook =
      Qel::make<TableHook>(model_, [&](const ReloadCauseKey&) { history->rebootHistoryDel(0); });

  machine->handlePeerCellResetHistory();

  EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(ResetHistorySmHistories, AHistoryReplacedWhileThePeersRowsGoIsTheOneWritten) {
  cell(2).reloaded({kPowerLoss});
  const auto machine = mounted();
  const auto other = Qel::make<System::ResetCauseHistory>("other");
  other->rebootHistoryIs(0)->causeQPush(kPanic);
  const auto hook = Qel::make<TableHook>(
      model_, [&](const ReloadCauseKey&) { machine->peerCellResetHistoryIs(other); });

  machine->handlePeerCellResetHistory();

  EXPECT_THAT(rows(), ElementsAre("2.0.1 Panic @1700000002"));
}

TEST_F(ResetHistorySmHistories, AHistoryDroppedWhileThePeersRowsGoIsNotWritten) {
  cell(2).reloaded({kPowerLoss});
  const auto machine = mounted();
  const auto hook = Qel::make<TableHook>(
      model_, [&](const ReloadCauseKey&) { machine->peerCellResetHistoryIs(nullptr); });

  machine->handlePeerCellResetHistory();

  EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(ResetHistorySmHistories, AReloadThatComesAndGoesWhileKeysAreWalkedLeavesNoMachine) {
  const auto machine = started();
  cell(1).reloadIs(1, {});
  const auto hook =
      Qel::make<TableHook>(model_, [&](const ReloadCauseKey&) { history_->rebootHistoryDel(0); });

  history_->rebootHistoryIs(0)->causeQPush(kPowerLoss);

  EXPECT_TRUE(machine->curCellResetInstanceSm().empty());
}

}  // namespace MiscSnmp::Agent
