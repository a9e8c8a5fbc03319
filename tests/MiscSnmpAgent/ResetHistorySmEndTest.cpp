// How a machine and what it holds end.
#include <functional>
#include <utility>
#include <vector>

#include "MiscSnmpAgent/ResetHistorySm.h"
#include "MiscSnmpAgent/ResetHistorySmFixture.h"

namespace MiscSnmp::Agent {

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A feed that notes its end.
class MortalFeed final : public Kavra::Feed {
 public:
  explicit MortalFeed(support::TraceRecorder& log) : log_(log) {}
  ~MortalFeed() override { log_.note("entity manager"); }

 private:
  support::TraceRecorder& log_;
};

}  // namespace

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

TEST_F(ResetHistorySmTest, MayBeLetGoByWhoeverHearsOfItsRows) {
  struct Case {
    const char* name;
    std::function<void()> prepare;
    std::function<void()> call;
  };
  Qel::Ptr<ResetHistorySm> machine;
  const auto nothing = [] {};
  const auto noRows = [&] { model_->reloadCauseTableDelAll(); };
  const auto noMachines = [&] {
    machine->curCellResetInstanceSmDelAll();
    machine->peerCellResetInstanceSmDelAll();
  };
  const std::vector<Case> cases{
      {"peer history", nothing, [&] { machine->peerCellResetHistoryIs(historyWith(kPowerLoss)); }},
      {"new peer history", noMachines,
       [&] { machine->peerCellResetHistoryIs(historyWith(kPowerLoss)); }},
      {"status", [&] { machine->redundancyStatusDel(); },
       [&] { machine->redundancyStatusIs(status_); }},
      {"own history",
       [&] {
         machine->curCellResetHistoryDel();
         noMachines();
       },
       [&] { machine->curCellResetHistoryIs(history_); }},
      {"switch",
       [&] {
         machine->hasNotificationActiveIs(false);
         noMachines();
       },
       [&] { machine->hasNotificationActiveIs(true); }},
      {"start", nothing, [&] { machine->handleInitialized(); }},
      {"another protocol", nothing, [&] { protocolIs(kProtocolWithoutPeer); }},
      {"protocol handler",
       [&] {
         machine->hasNotificationActiveIs(false);
         protocolIs(kProtocolWithoutPeer);
       },
       [&] { machine->handleRedundancyProtocol(); }},
      {"all rows", nothing, [&] { machine->deleteAllCellResetHistory(); }},
      {"own rows", nothing, [&] { machine->deleteCurCellResetHistory(); }},
      {"written own rows", noRows, [&] { machine->handleCurCellResetHistory(); }},
      {"peer rows", nothing, [&] { machine->handlePeerCellResetHistory(); }},
      {"written peer rows", noRows, [&] { machine->handlePeerCellResetHistory(); }},
      {"own update", noMachines, [&] { machine->handleCurCellResetHistoryUpdate(); }},
      {"peer update", noMachines, [&] { machine->handlePeerCellResetHistoryUpdate(); }},
      {"own machine", nothing, [&] { machine->curCellResetInstanceSmIs(5, nullptr, machine); }},
      {"peer machine", nothing, [&] { machine->peerCellResetInstanceSmIs(5, nullptr, machine); }}};
  // The walks over reloads have one to go on with.
  for (const U32 id : {1U, 2U}) cell(id).reloadIs(1, {});
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    machine = mounted();
    each.prepare();
    const auto hook =
        Qel::make<TableHook>(model_, [&](const ReloadCauseKey&) { machine = nullptr; });

    each.call();

    EXPECT_EQ(machine, nullptr);
    EXPECT_EQ(ResetHistorySm::liveCount(), 0U);
  }
}

TEST_F(ResetHistorySmTest, MayBeLetGoByWhoeverHearsOfTheEndOfWhatItReleases) {
  auto machine = mounted();
  auto words = Qel::make<LastWords>(machine->peerCellResetHistoryStatusDirMounter(),
                                    [&] { machine = nullptr; });
  machine->handleRedundancyProtocol();
  EXPECT_EQ(ResetHistorySm::liveCount(), 0U);

  machine = mounted();
  words->notifierIs(machine->peerCellResetHistoryStatusDirMounter());
  words->isRegisteredNotifieeIs(true);
  machine->peerCellResetHistoryStatusDirMounterIs("", "elsewhere", entityManager_, nullptr,
                                                  machine);
  EXPECT_EQ(ResetHistorySm::liveCount(), 0U);

  for (const bool own : {true, false}) {
    machine = mounted();
    auto reload = Qel::make<System::ResetInstance>(3U);
    for (const U32 key : {3U, 4U}) {
      const auto watched = key == 3U ? reload : nullptr;
      machine->curCellResetInstanceSmIs(key, own ? watched : nullptr, machine);
      machine->peerCellResetInstanceSmIs(key, own ? nullptr : watched, machine);
    }
    words->notifierIs(reload);
    words->isRegisteredNotifieeIs(true);
    reload = nullptr;
    if (own) {
      machine->curCellResetInstanceSmDelAll();
    } else {
      machine->deletePeerCellResetInstanceSm();
    }
    EXPECT_EQ(ResetHistorySm::liveCount(), 0U);
  }
}

TEST_F(ResetHistorySmTest, MayBeLetGoWhileWhatItHoldsRefersToAnother) {
  const auto other = made();
  auto machine = mounted();
  const auto letGo = [&] { machine = nullptr; };
  const auto hook = Qel::make<TableHook>(model_, [&](const ReloadCauseKey&) { letGo(); });
  machine->curCellResetInstanceSmIs(3, nullptr, other);
  EXPECT_EQ(ResetHistorySm::liveCount(), 1U);

  hook->hasNotificationActiveIs(false);
  machine = started();
  auto reload = Qel::make<System::ResetInstance>(3U);
  machine->peerCellResetInstanceSmIs(3, reload, other);
  machine->peerCellResetInstanceSmIs(4, nullptr, other);
  const auto words = Qel::make<LastWords>(reload, letGo);
  reload = nullptr;
  machine->peerCellResetInstanceSmDelAll();
  EXPECT_EQ(ResetHistorySm::liveCount(), 1U);
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

}  // namespace MiscSnmp::Agent
