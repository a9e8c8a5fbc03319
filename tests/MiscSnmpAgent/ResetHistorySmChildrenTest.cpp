// The instance machines and the mounter that a machine holds.
#include <utility>

#include "MiscSnmpAgent/ResetHistorySm.h"
#include "MiscSnmpAgent/ResetHistorySmFixture.h"
#include "Qel/ActivityManager.h"
#include "Qel/Exception.h"

namespace MiscSnmp::Agent {

using testing::IsEmpty;

// ---- the instance machines

TEST_F(ResetHistorySmTest, MakesAMachineOnceForTheSameReload) {
  const auto machine = started();
  const auto reload = Qel::make<System::ResetInstance>(7U);

  const auto own = machine->curCellResetInstanceSmIs(7, reload, machine);
  const auto peer = machine->peerCellResetInstanceSmIs(7, reload, machine);

  EXPECT_EQ(machine->curCellResetInstanceSmIs(7, reload, machine), own);
  EXPECT_EQ(machine->peerCellResetInstanceSmIs(7, reload, machine), peer);
  EXPECT_EQ(machine->curCellResetInstanceSm()[7], own);
  EXPECT_EQ(machine->peerCellResetInstanceSm()[7], peer);
  EXPECT_EQ(ResetInstanceSm::liveCount(), 2U);
  EXPECT_TRUE(isOn(own));
  EXPECT_TRUE(isOn(peer));
}

TEST_F(ResetHistorySmTest, AMachineMadeWhileTheOwnerIsOffIsOff) {
  const auto machine = made();
  EXPECT_FALSE(isOn(machine->curCellResetInstanceSmIs(0, nullptr, machine)));
  EXPECT_FALSE(isOn(machine->peerCellResetInstanceSmIs(0, nullptr, machine)));
}

TEST_F(ResetHistorySmTest, RefusesAnotherReloadUnderAKeyInUse) {
  const auto machine = started();
  const auto present = Qel::make<System::ResetInstance>(0U);
  const auto other = Qel::make<System::ResetInstance>(0U);
  const auto own = machine->curCellResetInstanceSmIs(0, present, machine);
  const auto peer = machine->peerCellResetInstanceSmIs(0, present, machine);
  const auto text =
      inUseText("_resetInstance", other.get(), present.get(), "System::ResetInstance");

  EXPECT_EQ(support::problemOf<Qel::NameInUseException>(
                [&] { machine->curCellResetInstanceSmIs(0, other, machine); }),
            text);
  EXPECT_EQ(support::problemOf<Qel::NameInUseException>(
                [&] { machine->peerCellResetInstanceSmIs(0, other, machine); }),
            text);
  EXPECT_EQ(support::problemOf<Qel::NameInUseException>(
                [&] { machine->peerCellResetInstanceSmIs(0, nullptr, machine); }),
            inUseText("_resetInstance", nullptr, present.get(), "System::ResetInstance"));
  EXPECT_EQ(machine->curCellResetInstanceSm()[0], own);
  EXPECT_EQ(machine->peerCellResetInstanceSm()[0], peer);
}

TEST_F(ResetHistorySmTest, RefusesAnotherBackPointerUnderAKeyInUse) {
  const auto machine = started();
  const auto other = made();
  const auto reload = Qel::make<System::ResetInstance>(0U);
  machine->curCellResetInstanceSmIs(0, reload, machine);
  machine->peerCellResetInstanceSmIs(0, reload, machine);
  const auto text =
      inUseText("_resetHistorySm", other.get(), machine.get(), "MiscSnmp::Agent::ResetHistorySm");

  EXPECT_EQ(support::problemOf<Qel::NameInUseException>(
                [&] { machine->curCellResetInstanceSmIs(0, reload, other); }),
            text);
  EXPECT_EQ(support::problemOf<Qel::NameInUseException>(
                [&] { machine->peerCellResetInstanceSmIs(0, reload, other); }),
            text);
  // The reload is compared first.
  EXPECT_EQ(support::problemOf<Qel::NameInUseException>(
                [&] { machine->curCellResetInstanceSmIs(0, nullptr, other); }),
            inUseText("_resetInstance", nullptr, reload.get(), "System::ResetInstance"));
}

TEST_F(ResetHistorySmTest, RefusesANullBackPointer) {
  const auto machine = started();

  EXPECT_EQ(support::problemOf<Qel::RangeException>(
                [&] { machine->curCellResetInstanceSmIs(0, nullptr, nullptr); }),
            "null ValidPtr");
  EXPECT_EQ(support::problemOf<Qel::RangeException>(
                [&] { machine->peerCellResetInstanceSmIs(0, nullptr, nullptr); }),
            "null ValidPtr");
  EXPECT_EQ(support::problemOf<Qel::RangeException>([&] {
              machine->peerCellResetHistoryStatusDirMounterIs(
                  "", "cell/2/sys/reset/history", entityManager_, Qel::activityManager()->clock(),
                  nullptr);
            }),
            "null ValidPtr");
  EXPECT_TRUE(machine->curCellResetInstanceSm().empty());
  EXPECT_TRUE(machine->peerCellResetInstanceSm().empty());
  EXPECT_EQ(machine->peerCellResetHistoryStatusDirMounter(), nullptr);
}

TEST_F(ResetHistorySmTest, RemovesAMachineAndNoRow) {
  const auto machine = mounted();
  const auto own = machine->curCellResetInstanceSm()[0];
  const auto peer = machine->peerCellResetInstanceSm()[0];

  EXPECT_EQ(machine->curCellResetInstanceSmDel(0), own);
  EXPECT_EQ(machine->peerCellResetInstanceSmDel(0), peer);
  EXPECT_EQ(machine->curCellResetInstanceSmDel(0), nullptr);
  EXPECT_EQ(machine->peerCellResetInstanceSmDel(0), nullptr);

  EXPECT_THAT(log(), IsEmpty());
  EXPECT_EQ(rows().size(), 3U);
}

TEST_F(ResetHistorySmTest, RemovesAllMachinesOfACellAndNoRow) {
  const auto machine = mounted();
  for (const U32 key : {3U, 4U}) {
    machine->curCellResetInstanceSmIs(key, nullptr, machine);
    machine->peerCellResetInstanceSmIs(key, nullptr, machine);
  }
  log();

  machine->curCellResetInstanceSmDelAll();
  EXPECT_TRUE(machine->curCellResetInstanceSm().empty());
  EXPECT_EQ(machine->peerCellResetInstanceSm().members(), 3U);
  machine->peerCellResetInstanceSmDelAll();
  EXPECT_TRUE(machine->peerCellResetInstanceSm().empty());
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ResetHistorySmTest, AMachineThatSomebodyMadeMeanwhileIsTaken) {
  const auto machine = started();
  bool isMaking = false;
  Qel::Ptr<CurCellResetInstanceSm> made;
  const auto hook = Qel::make<TableHook>(model_, [&](const ReloadCauseKey&) {
    if (std::exchange(isMaking, true)) return;
    made = machine->curCellResetInstanceSmIs(0, history_->rebootHistory(0), machine);
  });

  cell(1).reloaded({kPowerLoss});

  EXPECT_EQ(machine->curCellResetInstanceSm()[0], made);
  EXPECT_EQ(ResetInstanceSm::liveCount(), 1U);
}

// ---- the mounter

TEST_F(ResetHistorySmTest, KeepsTheMounterOfEqualPaths) {
  const auto machine = started();
  const auto clock = Qel::activityManager()->clock();
  const auto first =
      machine->peerCellResetHistoryStatusDirMounterIs("a", "b", entityManager_, clock, machine);
  EXPECT_TRUE(isOn(first));

  EXPECT_EQ(
      machine->peerCellResetHistoryStatusDirMounterIs("a", "b", entityManager_, clock, machine),
      first);
  const auto second =
      machine->peerCellResetHistoryStatusDirMounterIs("a", "c", entityManager_, clock, machine);
  EXPECT_NE(second, first);
  EXPECT_FALSE(isOn(first));
  const auto third =
      machine->peerCellResetHistoryStatusDirMounterIs("d", "c", entityManager_, clock, machine);
  EXPECT_NE(third, second);
  EXPECT_EQ(machine->peerCellResetHistoryStatusDirMounter(), third);
}

TEST_F(ResetHistorySmTest, KnowsTheMounterByItsTwoPathsAlone) {
  const auto machine = started();
  const auto other = made();
  const auto otherManager = Qel::make<Kavra::EntityManager>(feed_);
  const auto first = machine->peerCellResetHistoryStatusDirMounterIs(
      "a", "b", entityManager_, Qel::activityManager()->clock(), machine);

  EXPECT_EQ(machine->peerCellResetHistoryStatusDirMounterIs("a", "b", otherManager, nullptr, other),
            first);

  EXPECT_EQ(first->entityManager(), entityManager_);
  EXPECT_EQ(first->clock(), Qel::activityManager()->clock());
  EXPECT_EQ(first->resetHistorySm(), machine);
}

TEST_F(ResetHistorySmTest, AMounterSetByWhoeverHearsOfTheEndOfTheOldOneTakesThePlaceOfTheNew) {
  auto machine = started();
  const auto mounterIs = [&](const char* path) {
    machine->peerCellResetHistoryStatusDirMounterIs("", path, entityManager_, nullptr, machine);
  };
  mounterIs("old");
  const auto words = Qel::make<LastWords>(machine->peerCellResetHistoryStatusDirMounter(),
                                          [&] { mounterIs("last"); });

  mounterIs("new");

  EXPECT_EQ(machine->peerCellResetHistoryStatusDirMounter()->path(), "last");
  EXPECT_EQ(PeerCellResetHistoryStatusDirMounter::liveCount(), 1U);
  machine = nullptr;
  EXPECT_EQ(ResetHistorySm::liveCount(), 0U);
}

TEST_F(ResetHistorySmTest, DropsTheMounterSwitchedOff) {
  protocolIs(kProtocolWithPeer);
  const auto machine = started();

  const auto dropped = machine->peerCellResetHistoryStatusDirMounterDel();

  EXPECT_FALSE(isOn(dropped));
  EXPECT_EQ(machine->peerCellResetHistoryStatusDirMounter(), nullptr);
  EXPECT_EQ(machine->peerCellResetHistoryStatusDirMounterDel(), nullptr);
  cell(2).reloaded({kWatchdog});
  settle();
  EXPECT_EQ(machine->peerCellResetHistory(), nullptr);
}

}  // namespace MiscSnmp::Agent
