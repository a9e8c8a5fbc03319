#include "MiscSnmpAgent/ResetHistorySm.h"

#include <stdexcept>
#include <utility>

#include "MiscSnmpAgent/AgentFixture.h"
#include "Qel/ActivityManager.h"
#include "Qel/Exception.h"
#include "Qel/Format.h"
#include "Qel/GenericIf.h"
#include "Qel/Strep.h"

namespace MiscSnmp::Agent {

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const System::ResetCause kPowerLoss{"Power loss", 1700000000.9};
const System::ResetCause kWatchdog{"Watchdog", 1700000001.5};

// Notes when the watched entity loses its last reference.
class Obituary final : public Qel::Entity::NotifieeConst {
 public:
  Obituary(const Qel::Ptr<Qel::PtrInterface const>& entity, support::TraceRecorder& log,
           const char* line)
      : Qel::Entity::NotifieeConst(Qel::NotifierReference::plain), log_(log), line_(line) {
    notifierIs(entity);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onZeroReferences() override { log_.note(line_); }

 private:
  support::TraceRecorder& log_;
  const char* const line_;
};

// A feed that notes its end.
class MortalFeed final : public Kavra::Feed {
 public:
  explicit MortalFeed(support::TraceRecorder& log) : log_(log) {}
  ~MortalFeed() override { log_.note("entity manager"); }

 private:
  support::TraceRecorder& log_;
};

Qel::Ptr<System::ResetCauseHistory> historyWith(const System::ResetCause& cause) {
  auto history = Qel::make<System::ResetCauseHistory>("another");
  history->rebootHistoryIs(0)->causeQPush(cause);
  return history;
}

std::string inUseText(const char* attribute, const void* wanted, const void* present,
                      const char* type) {
  return std::string(
             "Reinstantiating the pointer interface where constructor parameter attribute ") +
         attribute + " has a different value of " +
         Qel::valueToStrepOfRawPtr(wanted, type).stdString() + " than the current value of " +
         Qel::valueToStrepOfRawPtr(present, type).stdString() + " not allowed";
}

template <class Error, class Work>
std::string errorOf(const Work& work) {
  try {
    work();
  } catch (const Error& error) {
    return error.what();
  }
  return "no error";
}

}  // namespace

// A machine over trace-less logs: only rows show.
class ResetHistorySmTest : public QuietAgentFixture {
 protected:
  // Running, with the peer mounted, one cause in each cell; the log begins after that.
  Qel::Ptr<ResetHistorySm> mounted() {
    cell(1).reloaded({kPowerLoss});
    cell(2).reloaded({kWatchdog});
    peerIsReachable();
    auto machine = started();
    log();
    return machine;
  }
};
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

  EXPECT_EQ(errorOf<Qel::RangeException>([this] { made(); }), "null ValidPtr");
  EXPECT_EQ(newObjects(), before);
}

TEST_F(ResetHistorySmTest, AnErrorInTheConstructorLeavesNothingBehind) {
  cell(1).reloaded({kPowerLoss, kWatchdog});
  const auto hook = Qel::make<TableHook>(model_, [](const ReloadCauseKey& key) {
    if (key == ReloadCauseKey(1, 0, 2)) throw std::runtime_error("no more rows");
  });
  const std::ptrdiff_t before = newObjects();

  EXPECT_EQ(errorOf<std::runtime_error>([this] { made(); }), "no more rows");

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

  EXPECT_EQ(errorOf<Qel::NameInUseException>([&] { machine->curCellResetHistoryIs(other); }),
            inUseText("_resetInstance", other->rebootHistory(0).get(),
                      history_->rebootHistory(0).get(), "System::ResetInstance"));
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

  EXPECT_EQ(errorOf<Qel::NameInUseException>(
                [&] { machine->curCellResetInstanceSmIs(0, other, machine); }),
            text);
  EXPECT_EQ(errorOf<Qel::NameInUseException>(
                [&] { machine->peerCellResetInstanceSmIs(0, other, machine); }),
            text);
  EXPECT_EQ(errorOf<Qel::NameInUseException>(
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

  EXPECT_EQ(errorOf<Qel::NameInUseException>(
                [&] { machine->curCellResetInstanceSmIs(0, reload, other); }),
            text);
  EXPECT_EQ(errorOf<Qel::NameInUseException>(
                [&] { machine->peerCellResetInstanceSmIs(0, reload, other); }),
            text);
  // The reload is compared first.
  EXPECT_EQ(errorOf<Qel::NameInUseException>(
                [&] { machine->curCellResetInstanceSmIs(0, nullptr, other); }),
            inUseText("_resetInstance", nullptr, reload.get(), "System::ResetInstance"));
}

TEST_F(ResetHistorySmTest, RefusesANullBackPointer) {
  const auto machine = started();

  EXPECT_EQ(
      errorOf<Qel::RangeException>([&] { machine->curCellResetInstanceSmIs(0, nullptr, nullptr); }),
      "null ValidPtr");
  EXPECT_EQ(errorOf<Qel::RangeException>(
                [&] { machine->peerCellResetInstanceSmIs(0, nullptr, nullptr); }),
            "null ValidPtr");
  EXPECT_EQ(errorOf<Qel::RangeException>([&] {
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

// ---- the end

TEST_F(ResetHistorySmTest, EndsWithItsLastReferenceFromOutside) {
  auto machine = mounted();
  EXPECT_EQ(ResetHistorySm::liveCount(), 1U);
  EXPECT_EQ(ResetInstanceSm::liveCount(), 2U);

  machine = nullptr;

  EXPECT_EQ(ResetHistorySm::liveCount(), 0U);
  EXPECT_EQ(ResetInstanceSm::liveCount(), 0U);
  EXPECT_EQ(PeerCellResetHistoryStatusDirMounter::liveCount(), 0U);
  EXPECT_EQ(rows().size(), 3U);
}

TEST_F(ResetHistorySmTest, LivesWhileAChildIsHeldOutside) {
  auto machine = mounted();
  Qel::Ptr<ResetInstanceSm> own = machine->curCellResetInstanceSm()[0];
  Qel::Ptr<ResetInstanceSm> peer = machine->peerCellResetInstanceSm()[0];
  auto mounter = machine->peerCellResetHistoryStatusDirMounter();

  machine = nullptr;
  EXPECT_EQ(ResetHistorySm::liveCount(), 1U);
  own = nullptr;
  peer = nullptr;
  EXPECT_EQ(ResetHistorySm::liveCount(), 1U);
  cell(1).causeIs(kWatchdog);
  EXPECT_EQ(rows().size(), 5U);
  log();

  mounter = nullptr;
  EXPECT_EQ(ResetHistorySm::liveCount(), 0U);
  cell(1).causeIs(kWatchdog);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ResetHistorySmTest, LivesWhileAnInstanceMachineIsHeldOutside) {
  for (const bool own : {true, false}) {
    auto machine = mounted();
    Qel::Ptr<ResetInstanceSm> child;
    if (own) {
      child = machine->curCellResetInstanceSm()[0];
    } else {
      child = machine->peerCellResetInstanceSm()[0];
    }
    machine = nullptr;
    EXPECT_EQ(ResetHistorySm::liveCount(), 1U);
    child = nullptr;
    EXPECT_EQ(ResetHistorySm::liveCount(), 0U);
  }
}

TEST_F(ResetHistorySmTest, LivesWhileAChildThatItRemovedIsHeldOutside) {
  auto machine = mounted();
  auto removed = machine->curCellResetInstanceSmDel(0);

  machine = nullptr;
  EXPECT_EQ(ResetHistorySm::liveCount(), 1U);
  removed = nullptr;
  EXPECT_EQ(ResetHistorySm::liveCount(), 0U);
}

TEST_F(ResetHistorySmTest, LetGoInsideItsOwnReactionEndsAfterIt) {
  auto machine = mounted();
  const auto hook = Qel::make<TableHook>(model_, [&](const ReloadCauseKey&) { machine = nullptr; });

  cell(1).causeIs(kWatchdog);

  EXPECT_THAT(log(), ElementsAre("- 0.0.1", "- 1.0.1", "+ 0.0.1", "+ 1.0.1", "+ 0.0.2", "+ 1.0.2"));
  EXPECT_EQ(ResetHistorySm::liveCount(), 0U);
  cell(1).causeIs(kPowerLoss);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ResetHistorySmTest, ReleasesItsChildrenThenItsReactorsThenItsInputs) {
  entityManager_ = Qel::make<Kavra::EntityManager>(Qel::make<MortalFeed>(log_));
  protocolIs(kProtocolWithPeer);
  auto machine = started();
  auto peerHistory = Qel::make<System::ResetCauseHistory>("peer");
  machine->peerCellResetHistoryIs(peerHistory);
  machine->hasNotificationActiveIs(true);
  const auto ownReload = Qel::make<Obituary>(history_->rebootHistoryIs(0), log_, "own reload");
  const auto peerReload = Qel::make<Obituary>(peerHistory->rebootHistoryIs(0), log_, "peer reload");
  const auto mounter =
      Qel::make<Obituary>(machine->peerCellResetHistoryStatusDirMounter(), log_, "mounter");
  const auto peer = Qel::make<Obituary>(peerHistory, log_, "peer history");
  const auto own = Qel::make<Obituary>(history_, log_, "own history");
  const auto model = Qel::make<Obituary>(model_, log_, "model");
  const auto status = Qel::make<Obituary>(status_, log_, "status");
  // From here on the machines alone hold the reloads: a switched-off owner keeps them.
  machine->hasNotificationActiveIs(false);
  history_->rebootHistoryDel(0);
  peerHistory->rebootHistoryDel(0);
  status_ = nullptr;
  model_ = nullptr;
  history_ = nullptr;
  peerHistory = nullptr;
  entityManager_ = nullptr;
  EXPECT_THAT(log(), IsEmpty());

  machine = nullptr;

  EXPECT_THAT(log(), ElementsAre("own reload", "peer reload", "mounter", "peer history",
                                 "own history", "entity manager", "model", "status"));
}

TEST_F(ResetHistorySmTest, ReactorsThatOutliveItAreZombiesWithoutAnOwner) {
  auto machine = mounted();
  const auto peerHistory = machine->peerCellResetHistory();
  const auto status = reactorOn<ResetHistorySm::QelRedundancyStatus>(status_);
  const auto own = reactorOn<ResetHistorySm::QelCurCellResetHistory>(history_);
  const auto peer = reactorOn<ResetHistorySm::QelPeerCellResetHistory>(peerHistory);
  log_.levelIs("MiscSnmp", 8);

  machine = nullptr;
  EXPECT_TRUE(status->isMarkedForDeletion());
  EXPECT_TRUE(own->isMarkedForDeletion());
  EXPECT_TRUE(peer->isMarkedForDeletion());

  status->qelDoZombieReactors(false);
  own->qelDoZombieReactors(false);
  peer->qelDoZombieReactors(false);
  status->onProtocol();
  status->onSwitchoverCapable();
  own->onRebootHistory(0);
  peer->onRebootHistory(0);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ResetHistorySmTest, ReactorsThatItLetsGoAreZombiesWithoutAnOwner) {
  const auto machine = mounted();
  const auto peerHistory = machine->peerCellResetHistory();
  const auto status = reactorOn<ResetHistorySm::QelRedundancyStatus>(status_);
  const auto own = reactorOn<ResetHistorySm::QelCurCellResetHistory>(history_);
  const auto peer = reactorOn<ResetHistorySm::QelPeerCellResetHistory>(peerHistory);
  machine->peerCellResetHistoryIs(nullptr);
  machine->curCellResetHistoryIs(nullptr);
  machine->redundancyStatusIs(nullptr);
  log_.levelIs("MiscSnmp", 8);

  EXPECT_TRUE(status->isMarkedForDeletion());
  EXPECT_TRUE(own->isMarkedForDeletion());
  EXPECT_TRUE(peer->isMarkedForDeletion());
  status->qelDoZombieReactors(false);
  own->qelDoZombieReactors(false);
  peer->qelDoZombieReactors(false);
  status->onProtocol();
  own->onRebootHistory(0);
  peer->onRebootHistory(0);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ResetHistorySmTest, BeingNoZombieTwiceIsNotPassedOn) {
  const auto machine = mounted();
  const auto reactor = reactorOn<ResetHistorySm::QelRedundancyStatus>(status_);
  reactor->qelDoZombieReactors(true);

  machine->qelDoZombieReactors(false);

  EXPECT_TRUE(reactor->isMarkedForDeletion());
}

TEST_F(ResetHistorySmTest, AZombieHearsNothingAndAMachineThatIsNoneAgainDoes) {
  const auto machine = mounted();
  log_.levelIs("MiscSnmp", 8);

  machine->qelDoZombieReactors(true);
  EXPECT_TRUE(machine->isMarkedForDeletion());
  switchoverCapableIs(false);
  protocolIs(kProtocolWithoutPeer);
  cell(1).reloadIs(2, {});
  cell(2).reloadIs(2, {});
  EXPECT_THAT(log(), IsEmpty());

  machine->qelDoZombieReactors(false);
  EXPECT_FALSE(machine->isMarkedForDeletion());
  log();
  switchoverCapableIs(true);
  EXPECT_THAT(log(), testing::Not(IsEmpty()));
  cell(1).reloadIs(3, {});
  EXPECT_THAT(log(), testing::Not(IsEmpty()));
  cell(2).reloadIs(3, {});
  EXPECT_THAT(log(), testing::Not(IsEmpty()));
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
