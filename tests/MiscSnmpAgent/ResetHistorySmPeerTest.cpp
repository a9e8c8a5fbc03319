// The peer comes and goes with the redundancy status, and rows are removed.
#include "MiscSnmpAgent/ResetHistorySm.h"
#include "MiscSnmpAgent/ResetHistorySmFixture.h"
#include "Qel/ActivityManager.h"
#include "Qel/Format.h"

namespace MiscSnmp::Agent {

using testing::ElementsAre;
using testing::IsEmpty;

// ---- redundancy

TEST_F(ResetHistorySmTest, MountsThePathOfCell2OnCell1) {
  protocolIs(kProtocolWithPeer);
  const auto machine = started();

  const auto& mounter = machine->peerCellResetHistoryStatusDirMounter();
  EXPECT_EQ(mounter->rootPath(), "");
  EXPECT_EQ(mounter->path(), "cell/2/sys/reset/history");
  EXPECT_EQ(mounter->mountPath(), "cell/2/sys/reset/history");
  EXPECT_EQ(mounter->entityManager(), entityManager_);
  EXPECT_EQ(mounter->clock(), Qel::activityManager()->clock());
  EXPECT_EQ(mounter->resetHistorySm(), machine);
  EXPECT_TRUE(isOn(mounter));
}

TEST_F(ResetHistorySmTest, MountsThePathOfCell1OnCell2) {
  Cell::cellIdIs(2);
  cell(1).reloaded({kWatchdog});
  peerIsReachable();

  const auto machine = started();

  EXPECT_EQ(machine->peerCellResetHistoryStatusDirMounter()->path(), "cell/1/sys/reset/history");
  EXPECT_THAT(rows(), ElementsAre("1.0.1 Watchdog @1700000001"));
}

TEST_F(ResetHistorySmTest, EachPassWithAPeerDropsTheMounterAndMakesAnother) {
  const auto machine = started();
  protocolIs(kProtocolWithPeer);
  const auto first = Qel::make<Obituary>(machine->peerCellResetHistoryStatusDirMounter(), log_,
                                         "first mounter gone");
  settle();
  Qel::activityManager()->wakeUpIs([this] {
    log_.note(Qel::format("a mount begins, mounters %u",
                          PeerCellResetHistoryStatusDirMounter::liveCount())
                  .stdString());
  });

  machine->handleRedundancyProtocol();

  Qel::activityManager()->wakeUpIs({});
  EXPECT_THAT(log(), ElementsAre("first mounter gone", "a mount begins, mounters 1"));
  EXPECT_EQ(first->isRegisteredNotifiee(), false);
  EXPECT_NE(machine->peerCellResetHistoryStatusDirMounter(), nullptr);
}

TEST_F(ResetHistorySmTest, APassWithAPeerTracesThenDropsTheMounterThenMakesAnother) {
  protocolIs(kProtocolWithPeer);
  const auto machine = started();
  const auto first = Qel::make<LastWords>(machine->peerCellResetHistoryStatusDirMounter(), [this] {
    log_.note(Qel::format("first mounter goes, mounters %u",
                          PeerCellResetHistoryStatusDirMounter::liveCount())
                  .stdString());
  });
  log_.levelIs("MiscSnmp", 8);

  machine->handleRedundancyProtocol();

  EXPECT_THAT(log(), ElementsAre("MiscSnmp 8: void MiscSnmp::Agent::ResetHistorySm::"
                                 "handleRedundancyProtocol() rootPath : , path : "
                                 "cell/2/sys/reset/history",
                                 "first mounter goes, mounters 1"));
}

TEST_F(ResetHistorySmTest, AnotherProtocolReleasesThePeersMachinesThenRowsThenHistory) {
  const auto machine = mounted();
  const auto hook = Qel::make<TableHook>(model_, [&](const ReloadCauseKey&) {
    EXPECT_TRUE(machine->peerCellResetInstanceSm().empty());
    EXPECT_EQ(ResetInstanceSm::liveCount(), 1U);
    EXPECT_NE(machine->peerCellResetHistory(), nullptr);
  });

  protocolIs(kProtocolWithoutPeer);

  EXPECT_THAT(log(), ElementsAre("- 2.0.1"));
  EXPECT_EQ(machine->peerCellResetHistory(), nullptr);
}

TEST_F(ResetHistorySmTest, AnotherProtocolInsideTheWritingOfThePeersRowsLeavesSomeUntilTheNext) {
  cell(2).reloaded({kPowerLoss, kWatchdog});
  protocolIs(kProtocolWithPeer);
  switchoverCapableIs(true);
  const auto machine = made();
  machine->hasNotificationActiveIs(true);
  auto hook = Qel::make<TableHook>(
      model_, [this](const ReloadCauseKey&) { protocolIs(kProtocolWithoutPeer); });

  settle();

  EXPECT_EQ(machine->peerCellResetHistory(), nullptr);
  EXPECT_EQ(machine->peerCellResetInstanceSm().members(), 1U);
  EXPECT_THAT(rows(), ElementsAre("2.0.2 Watchdog @1700000001"));

  hook = nullptr;
  protocolIs(Redundancy::RedundancyProtocol::none);
  EXPECT_TRUE(machine->peerCellResetInstanceSm().empty());
  EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(ResetHistorySmTest, AnotherProtocolTakesThePeerAwayAndKeepsTheMounter) {
  const auto machine = mounted();
  const auto mounter = machine->peerCellResetHistoryStatusDirMounter();

  protocolIs(kProtocolWithoutPeer);

  EXPECT_THAT(rows(), ElementsAre("0.0.1 Power loss @1700000000", "1.0.1 Power loss @1700000000"));
  EXPECT_TRUE(machine->peerCellResetInstanceSm().empty());
  EXPECT_EQ(machine->curCellResetInstanceSm().members(), 1U);
  EXPECT_EQ(machine->peerCellResetHistory(), nullptr);
  EXPECT_EQ(machine->peerCellResetHistoryStatusDirMounter(), mounter);
  EXPECT_TRUE(isOn(mounter));
}

TEST_F(ResetHistorySmTest, AMountUnderWayStillCompletesAfterTheProtocolChanged) {
  switchoverCapableIs(true);
  const auto machine = started();
  protocolIs(kProtocolWithPeer);
  protocolIs(kProtocolWithoutPeer);

  cell(2).reloaded({kWatchdog});
  settle();

  EXPECT_THAT(rows(), ElementsAre("2.0.1 Watchdog @1700000001"));
}

TEST_F(ResetHistorySmTest, PeerRowsStayUntilTheNextMountCompletes) {
  const auto machine = mounted();
  const auto earlier = machine->peerCellResetHistory();

  machine->handleRedundancyProtocol();
  EXPECT_EQ(machine->peerCellResetHistory(), earlier);
  EXPECT_EQ(rows().size(), 3U);
  settle();

  EXPECT_NE(machine->peerCellResetHistory(), earlier);
  EXPECT_EQ(rows().size(), 3U);
}

// ---- removal of rows

TEST_F(ResetHistorySmTest, RemovesRowsOfUnitZeroAndOwnCell) {
  const auto machine = made();
  for (const U32 unit : {0U, 1U, 2U, 3U}) rowIs({unit, unit, 1});
  log();

  machine->deleteCurCellResetHistory();

  EXPECT_THAT(log(), ElementsAre("- 0.0.1", "- 1.1.1"));
}

TEST_F(ResetHistorySmTest, RemovesRowsOfUnitZeroAndOwnCellOnCell2) {
  Cell::cellIdIs(2);
  const auto machine = made();
  for (const U32 unit : {0U, 1U, 2U, 3U}) rowIs({unit, unit, 1});
  log();

  machine->deleteCurCellResetHistory();

  EXPECT_THAT(log(), ElementsAre("- 0.0.1", "- 2.2.1"));
}

TEST_F(ResetHistorySmTest, RemovesRowsOfThePeersUnitWhateverTheirReload) {
  const auto machine = made();
  for (const U32 unit : {0U, 1U, 2U, 3U}) rowIs({unit, 0, 1});
  rowIs({2, 6, 2});
  log();

  machine->deletePeerCellResetHistory();

  EXPECT_THAT(log(), ElementsAre("- 2.0.1", "- 2.6.2"));
}

TEST_F(ResetHistorySmTest, RemovesEveryRow) {
  const auto machine = made();
  for (const U32 unit : {0U, 1U, 2U, 3U}) rowIs({unit, 0, 1});
  log();

  machine->deleteAllCellResetHistory();

  EXPECT_THAT(log(), ElementsAre("- 0.0.1", "- 1.0.1", "- 2.0.1", "- 3.0.1"));
}

TEST_F(ResetHistorySmTest, RemovesRowsAlthoughOthersRemoveAndAddSomeMeanwhile) {
  const auto machine = made();
  for (const U32 cause : {1U, 2U, 3U}) rowIs({2, 0, cause});
  const auto hook = Qel::make<TableHook>(model_, [this](const ReloadCauseKey& key) {
    if (!(key == ReloadCauseKey(2, 0, 1))) return;
    model_->reloadCauseTableDel({2, 0, 2});
    rowIs({2, 0, 5});
  });
  log();

  machine->deletePeerCellResetHistory();

  EXPECT_THAT(log(), ElementsAre("- 2.0.1", "- 2.0.2", "+ 2.0.5", "- 2.0.3", "- 2.0.5"));
}

TEST_F(ResetHistorySmTest, RemovesThePeersMachinesAndNoRow) {
  const auto machine = mounted();
  machine->peerCellResetInstanceSmIs(3, nullptr, machine);
  log();

  machine->deletePeerCellResetInstanceSm();

  EXPECT_TRUE(machine->peerCellResetInstanceSm().empty());
  EXPECT_EQ(machine->curCellResetInstanceSm().members(), 1U);
  EXPECT_THAT(log(), IsEmpty());
}

}  // namespace MiscSnmp::Agent
