#include "MiscSnmpAgent/ResetHistorySm.h"

#include <stdexcept>

#include "MiscSnmpAgent/ResetHistorySmFixture.h"
#include "Qel/Exception.h"

namespace MiscSnmp::Agent {

using testing::ElementsAre;
using testing::IsEmpty;

using ResetHistorySmDeathTest = ResetHistorySmTest;

// ---- start

TEST_F(ResetHistorySmTest, StartsByRemovingTheRowsOfAnyUnit) {
  rowIs({0, 0, 9});
  rowIs({1, 0, 9});
  rowIs({2, 0, 9});
  rowIs({4000000000U, 3, 9});
  cell(1).reloaded({kPowerLoss});

  const auto machine = made();

  EXPECT_THAT(rows(), ElementsAre("0.0.1 Power loss @1700000000", "1.0.1 Power loss @1700000000"));
}

TEST_F(ResetHistorySmTest, KnowsItsInputsAndNothingOfAPeer) {
  const auto machine = made();

  EXPECT_EQ(machine->redundancyStatus(), status_);
  EXPECT_EQ(machine->generalMib(), model_);
  EXPECT_EQ(machine->curCellResetHistory(), history_);
  EXPECT_EQ(machine->entityManager(), entityManager_);
  EXPECT_EQ(machine->cellType(), "supervisor");
  EXPECT_EQ(machine->peerCellResetHistory(), nullptr);
  EXPECT_TRUE(machine->curCellResetInstanceSm().empty());
  EXPECT_TRUE(machine->peerCellResetInstanceSm().empty());
  EXPECT_EQ(machine->peerCellResetHistoryStatusDirMounter(), nullptr);
  EXPECT_FALSE(isOn(machine));
}

TEST_F(ResetHistorySmTest, HearsNothingBeforeItIsSwitchedOn) {
  const auto machine = made();

  cell(1).reloaded({kPowerLoss});
  peerIsReachable();

  EXPECT_THAT(rows(), IsEmpty());
  EXPECT_EQ(machine->peerCellResetHistoryStatusDirMounter(), nullptr);
}

TEST_F(ResetHistorySmDeathTest, StopsTheProcessWithoutARedundancyStatus) {
  status_ = nullptr;
  EXPECT_DEATH(made(), "assertion failed: status ");
}

TEST_F(ResetHistorySmDeathTest, StopsTheProcessWithoutAHistoryOfTheOwnCell) {
  history_ = nullptr;
  EXPECT_DEATH(made(), "assertion failed: history ");
}

TEST_F(ResetHistorySmDeathTest, StopsTheProcessWhenThePeerIsLookedAtWithoutAStatus) {
  const auto machine = started();
  machine->redundancyStatusDel();
  EXPECT_DEATH(machine->handlePeerCellResetHistory(), "assertion failed: status ");
}

TEST_F(ResetHistorySmDeathTest, StopsTheProcessWhenAKeyIsLookedAtWithoutAHistory) {
  const auto machine = started();
  machine->curCellResetHistoryDel();
  EXPECT_DEATH(machine->handleCurCellResetHistoryUpdate(0), "assertion failed: history ");
}

TEST_F(ResetHistorySmTest, CannotMountWithoutAnEntityManager) {
  entityManager_ = nullptr;
  protocolIs(kProtocolWithPeer);
  const std::ptrdiff_t before = newObjects();

  EXPECT_EQ(support::problemOf<Qel::RangeException>([this] { made(); }), "null ValidPtr");
  EXPECT_EQ(newObjects(), before);
}

TEST_F(ResetHistorySmTest, AnErrorInTheConstructorLeavesNothingBehind) {
  cell(1).reloaded({kPowerLoss, kWatchdog});
  const auto hook = Qel::make<TableHook>(model_, [](const ReloadCauseKey& key) {
    if (key == ReloadCauseKey(1, 0, 2)) throw std::runtime_error("no more rows");
  });
  const std::ptrdiff_t before = newObjects();

  EXPECT_EQ(support::problemOf<std::runtime_error>([this] { made(); }), "no more rows");

  // The rows that were written stay; of the machine nothing does.
  EXPECT_EQ(newObjects(), before + 4);
  EXPECT_EQ(ResetHistorySm::liveCount(), 0U);
  log();
  cell(1).reloaded({kPowerLoss});
  protocolIs(kProtocolWithPeer);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ResetHistorySmTest, AnErrorWhileAMachineIsMadeStoresNone) {
  const auto machine = started();
  auto hook = Qel::make<TableHook>(
      model_, [](const ReloadCauseKey&) { throw std::runtime_error("no rows"); });

  EXPECT_THROW(cell(1).reloaded({kPowerLoss}), std::runtime_error);
  EXPECT_TRUE(machine->curCellResetInstanceSm().empty());
  EXPECT_EQ(ResetInstanceSm::liveCount(), 0U);
  hook = nullptr;

  // The next look at the history makes up for it.
  cell(1).reloadIs(1, {});
  EXPECT_THAT(rows(), ElementsAre("0.0.1 Power loss @1700000000", "1.0.1 Power loss @1700000000"));
}

// ---- by name

TEST_F(ResetHistorySmTest, OffersItsAttributesByName) {
  const auto machine = mounted();
  const auto byName = Qel::genericIf(machine);

  EXPECT_EQ(byName->type().name(), "MiscSnmp::Agent::ResetHistorySm");
  EXPECT_EQ(byName->attribute("redundancyStatus").toPtr<Redundancy::RedundancyStatus const>(),
            status_);
  EXPECT_EQ(byName->attribute("generalMib").toPtr<GeneralMib>(), model_);
  EXPECT_EQ(byName->attribute("curCellResetHistory").toPtr<System::ResetCauseHistory const>(),
            history_);
  EXPECT_EQ(byName->attribute("entityManager").toPtr<Kavra::EntityManager>(), entityManager_);
  EXPECT_EQ(byName->attribute("cellType").toString(), "supervisor");
  EXPECT_EQ(byName->attribute("peerCellResetHistory").toPtr<System::ResetCauseHistory const>(),
            machine->peerCellResetHistory());
  EXPECT_EQ(byName->attribute("peerCellResetHistoryStatusDirMounter")
                .toPtr<PeerCellResetHistoryStatusDirMounter>(),
            machine->peerCellResetHistoryStatusDirMounter());
  EXPECT_THROW(byName->attributeIs("cellType", {"linecard"}), Qel::OperationNotSupportedException);
  EXPECT_THROW(byName->attributeDel("peerCellResetHistory"), Qel::OperationNotSupportedException);
}

}  // namespace MiscSnmp::Agent
