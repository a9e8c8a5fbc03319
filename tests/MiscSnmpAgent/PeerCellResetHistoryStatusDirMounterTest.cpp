#include "MiscSnmpAgent/PeerCellResetHistoryStatusDirMounter.h"

#include "MiscSnmpAgent/AgentFixture.h"
#include "Qel/Exception.h"
#include "Qel/GenericIf.h"
#include "support/ManualClock.h"

namespace MiscSnmp::Agent {

using testing::ElementsAre;
using testing::IsEmpty;

class PeerCellResetHistoryStatusDirMounterTest : public QuietAgentFixture {
 protected:
  using Mounter = PeerCellResetHistoryStatusDirMounter;

  Qel::Ptr<Mounter> mounter(const Qel::Ptr<ResetHistorySm>& machine) {
    return Mounter::PeerCellResetHistoryStatusDirMounterIs("", "cell/2/sys/reset/history",
                                                           entityManager_, clock_, machine);
  }
  static Qel::Ptr<System::ResetCauseHistory> historyWith(const System::ResetCause& cause) {
    auto history = Qel::make<System::ResetCauseHistory>("peer");
    history->rebootHistoryIs(0)->causeQPush(cause);
    return history;
  }

  Qel::Ptr<Qel::Clock const> clock_ = Qel::make<support::ManualClock>();
};
using PeerCellResetHistoryStatusDirMounterDeathTest = PeerCellResetHistoryStatusDirMounterTest;

TEST_F(PeerCellResetHistoryStatusDirMounterTest, IsAReadOnlyMountOfOneHistory) {
  const auto machine = made();
  const auto mounted = mounter(machine);

  EXPECT_EQ(mounted->rootPath(), "");
  EXPECT_EQ(mounted->path(), "cell/2/sys/reset/history");
  EXPECT_EQ(mounted->entityType(), "System::ResetCauseHistory");
  EXPECT_EQ(mounted->mountFlags(), "r");
  EXPECT_EQ(mounted->entityManager(), entityManager_);
  EXPECT_EQ(mounted->clock(), clock_);
  EXPECT_EQ(mounted->resetHistorySm(), machine);
  EXPECT_FALSE(isOn(mounted));
  EXPECT_EQ(mounted->fwkType()->name(), "MiscSnmp::Agent::PeerCellResetHistoryStatusDirMounter");
}

TEST_F(PeerCellResetHistoryStatusDirMounterTest, RefusesANullBackPointer) {
  try {
    mounter(nullptr);
    FAIL() << "no error";
  } catch (const Qel::RangeException& error) {
    EXPECT_STREQ(error.what(), "null ValidPtr");
  }
  EXPECT_EQ(PeerCellResetHistoryStatusDirMounter::liveCount(), 0U);
}

TEST_F(PeerCellResetHistoryStatusDirMounterDeathTest, StopsTheProcessWithoutABackPointer) {
  const auto orphan = Qel::make<Mounter>("", "cell/2/sys/reset/history", entityManager_, clock_,
                                         Qel::Ptr<ResetHistorySm>());
  EXPECT_DEATH(orphan->handleComplete(nullptr), "assertion failed: resetHistorySm\\(\\) ");
}

TEST_F(PeerCellResetHistoryStatusDirMounterTest, CompletesFromTheLoopNeverFromTheStart) {
  switchoverCapableIs(true);
  cell(2).reloaded({kPowerLoss});
  const auto machine = started();
  const auto mounted = mounter(machine);
  mounted->hasNotificationActiveIs(true);

  mounted->start();
  EXPECT_THAT(rows(), IsEmpty());
  settle();

  EXPECT_THAT(rows(), ElementsAre("2.0.1 Power loss @1700000000"));
}

TEST_F(PeerCellResetHistoryStatusDirMounterTest, WaitsForAHistoryThatIsNotPublishedYet) {
  switchoverCapableIs(true);
  protocolIs(kProtocolWithPeer);
  const auto machine = started();
  EXPECT_EQ(machine->peerCellResetHistory(), nullptr);

  cell(2).reloaded({kPowerLoss});

  EXPECT_THAT(rows(), ElementsAre("2.0.1 Power loss @1700000000"));
}

TEST_F(PeerCellResetHistoryStatusDirMounterTest, NullClearsThePeerAndLeavesTheOwnRowsAlone) {
  switchoverCapableIs(true);
  cell(1).reloaded({kPowerLoss});
  const auto machine = started();
  machine->peerCellResetHistoryIs(historyWith(kPanic));
  ASSERT_EQ(machine->peerCellResetInstanceSm().members(), 1U);
  log();

  mounter(machine)->handleComplete(nullptr);

  EXPECT_TRUE(machine->peerCellResetInstanceSm().empty());
  EXPECT_EQ(machine->curCellResetInstanceSm().members(), 1U);
  EXPECT_EQ(machine->peerCellResetHistory(), nullptr);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(PeerCellResetHistoryStatusDirMounterTest, AnEntityOfAnotherTypeCountsAsNone) {
  switchoverCapableIs(true);
  const auto machine = started();
  machine->peerCellResetHistoryIs(historyWith(kPanic));

  mounter(machine)->handleComplete(status_);

  EXPECT_TRUE(machine->peerCellResetInstanceSm().empty());
  EXPECT_EQ(machine->peerCellResetHistory(), nullptr);
}

TEST_F(PeerCellResetHistoryStatusDirMounterTest, TracesThePathAndTheEntityBeforeItActs) {
  const auto machine = made();
  const auto mounted = mounter(machine);
  const auto history = Qel::make<System::ResetCauseHistory>("peer");
  log_.levelIs("MiscSnmp", 1);

  mounted->handleComplete(history);

  const auto lines = log_.records();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0].text,
            Qel::String("virtual void MiscSnmp::Agent::PeerCellResetHistoryStatusDirMounter::"
                        "handleComplete(const Ptr&) mountPath : cell/2/sys/reset/history, "
                        "entity : " +
                        shown(history)));
  EXPECT_EQ(lines[0].level, 1);
  EXPECT_EQ(lines[0].file, "MiscSnmpAgent");
  EXPECT_EQ(lines[0].function, "handleComplete");
}

TEST_F(PeerCellResetHistoryStatusDirMounterTest, TwoCompletionsLeaveOneMachineOnTheLastHistory) {
  switchoverCapableIs(true);
  const auto machine = started();
  const auto first = historyWith(kPowerLoss);
  const auto last = historyWith(kPanic);

  mounter(machine)->handleComplete(first);
  mounter(machine)->handleComplete(last);

  ASSERT_EQ(machine->peerCellResetInstanceSm().members(), 1U);
  EXPECT_EQ(machine->peerCellResetInstanceSm()[0]->resetInstance(), last->rebootHistory(0));
  EXPECT_EQ(ResetInstanceSm::liveCount(), 1U);
  EXPECT_THAT(rows(), ElementsAre("2.0.1 Panic @1700000002"));
}

TEST_F(PeerCellResetHistoryStatusDirMounterTest, TheSameHistoryAgainOnlyClearsTheMachines) {
  switchoverCapableIs(true);
  const auto machine = started();
  const auto history = historyWith(kPowerLoss);
  mounter(machine)->handleComplete(history);
  log();

  mounter(machine)->handleComplete(history);

  EXPECT_TRUE(machine->peerCellResetInstanceSm().empty());
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(PeerCellResetHistoryStatusDirMounterTest, DroppedWhileItMountsItCompletesIntoNothing) {
  protocolIs(kProtocolWithPeer);
  auto machine = started();
  machine->handleRedundancyProtocol();
  EXPECT_EQ(PeerCellResetHistoryStatusDirMounter::liveCount(), 1U);

  machine = nullptr;
  EXPECT_EQ(PeerCellResetHistoryStatusDirMounter::liveCount(), 0U);
  cell(2).reloaded({kPowerLoss});
  settle();

  EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(PeerCellResetHistoryStatusDirMounterTest, ItsOwnerLetGoInItsCompletionEndsAfterIt) {
  switchoverCapableIs(true);
  protocolIs(kProtocolWithPeer);
  auto machine = started();
  const auto hook = Qel::make<TableHook>(model_, [&](const ReloadCauseKey&) { machine = nullptr; });

  cell(2).reloaded({kPowerLoss});

  EXPECT_EQ(ResetHistorySm::liveCount(), 0U);
  EXPECT_EQ(PeerCellResetHistoryStatusDirMounter::liveCount(), 0U);
  EXPECT_EQ(rows().size(), 1U);
}

TEST_F(PeerCellResetHistoryStatusDirMounterTest, SwitchedOffDoesNotComplete) {
  cell(2).reloaded({kPowerLoss});
  const auto machine = started();
  const auto mounted = mounter(machine);
  mounted->hasNotificationActiveIs(true);
  EXPECT_TRUE(isOn(mounted));
  mounted->start();
  mounted->hasNotificationActiveIs(false);
  EXPECT_FALSE(isOn(mounted));
  settle();
  EXPECT_EQ(machine->peerCellResetHistory(), nullptr);

  mounted->hasNotificationActiveIs(true);
  settle();
  EXPECT_NE(machine->peerCellResetHistory(), nullptr);
}

TEST_F(PeerCellResetHistoryStatusDirMounterTest, WhatIsUnpublishedStaysAsItWasLastSeen) {
  switchoverCapableIs(true);
  protocolIs(kProtocolWithPeer);
  cell(2).reloaded({kPowerLoss});
  const auto machine = started();

  feed_->documentDel("cell/2/sys/reset/history");
  settle();

  EXPECT_THAT(rows(), ElementsAre("2.0.1 Power loss @1700000000"));
}

TEST_F(PeerCellResetHistoryStatusDirMounterTest, OffersItsAttributesByName) {
  const auto machine = made();
  const auto byName = Qel::genericIf(mounter(machine));

  EXPECT_EQ(byName->attributeNames(),
            (std::vector<Qel::String>{"rootPath", "path", "mountPath", "entityType", "mountFlags",
                                      "entityManager", "clock", "resetHistorySm"}));
  EXPECT_EQ(byName->attribute("rootPath").toString(), "");
  EXPECT_EQ(byName->attribute("path").toString(), "cell/2/sys/reset/history");
  EXPECT_EQ(byName->attribute("mountPath").toString(), "cell/2/sys/reset/history");
  EXPECT_EQ(byName->attribute("entityType").toString(), "System::ResetCauseHistory");
  EXPECT_EQ(byName->attribute("mountFlags").toString(), "r");
  EXPECT_EQ(byName->attribute("entityManager").toPtr<Kavra::EntityManager>(), entityManager_);
  EXPECT_EQ(byName->attribute("clock").toPtr<Qel::Clock const>(), clock_);
  EXPECT_EQ(byName->attribute("resetHistorySm").toPtr<ResetHistorySm>(), machine);
  EXPECT_THROW(byName->attributeIs("path", {"cell/1/sys/reset/history"}),
               Qel::OperationNotSupportedException);
}

}  // namespace MiscSnmp::Agent
