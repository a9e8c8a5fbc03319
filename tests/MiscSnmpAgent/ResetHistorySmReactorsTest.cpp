// What each notification of a watched entity triggers, with reactors made by hand.
#include "MiscSnmpAgent/AgentFixture.h"
#include "MiscSnmpAgent/ResetHistorySm.h"

namespace MiscSnmp::Agent {

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string sm(const std::string& text) {
  return "MiscSnmp 8: void MiscSnmp::Agent::ResetHistorySm::" + text;
}

const auto kProtocol = sm("handleRedundancyProtocol() Deleting peerCell reset history : none");
const std::vector<std::string> kPeerLooked{
    "MiscSnmp 1: void MiscSnmp::Agent::ResetHistorySm::handlePeerCellResetHistory() "
    "switchoverCapable : 0",
    "MiscSnmp 1: void MiscSnmp::Agent::ResetHistorySm::handlePeerCellResetHistory() Peer "
    "ReloadCauseAgent is still warming up: 0"};

}  // namespace

class ResetHistorySmReactors : public AgentFixture {
 protected:
  void SetUp() override {
    machine_ = made();
    log();
  }

  Qel::Ptr<ResetHistorySm> machine_;
};

TEST_F(ResetHistorySmReactors, AStatusReactorFollowsTheProtocolAndTheSwitchoverAlone) {
  const auto reactor = Qel::make<ResetHistorySm::QelRedundancyStatus>(status_, machine_.get());
  EXPECT_THAT(log(), IsEmpty());

  reactor->onProtocol();
  EXPECT_THAT(log(), ElementsAre(kProtocol));
  reactor->onSwitchoverCapable();
  EXPECT_EQ(log(), kPeerLooked);

  reactor->onMode();
  reactor->onSwitchoverStage();
  reactor->onHwMode();
  reactor->onActiveCellId();
  reactor->onPeerMode();
  reactor->onPeerState();
  reactor->onPeerActive();
  reactor->onInitialized();
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ResetHistorySmReactors, AStatusReactorThatIsReboundLooksAtProtocolAndPeer) {
  const auto reactor = Qel::make<ResetHistorySm::QelRedundancyStatus>(status_, machine_.get());
  const auto other = Qel::make<Redundancy::RedundancyStatus>("other");

  reactor->notifierIs(other);
  EXPECT_THAT(log(), ElementsAre(kProtocol, kPeerLooked[0], kPeerLooked[1]));
  EXPECT_EQ(reactor->redundancyStatus(), other);
  EXPECT_TRUE(reactor->isRegisteredNotifiee());

  reactor->notifierIs(nullptr);
  EXPECT_EQ(reactor->redundancyStatus(), nullptr);
  reactor->notifierIs(history_);
  EXPECT_EQ(reactor->redundancyStatus(), nullptr);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ResetHistorySmReactors, AStatusReactorThatDiesOfTheProtocolLooksNoFurther) {
  const auto reactor = Qel::make<ResetHistorySm::QelRedundancyStatus>(status_, machine_.get());
  rowIs({2, 0, 1});
  const auto hook = Qel::make<TableHook>(
      model_, [&](const ReloadCauseKey&) { reactor->qelDoZombieReactors(true); });
  log();

  reactor->notifierIs(Qel::make<Redundancy::RedundancyStatus>("other"));

  EXPECT_THAT(log(),
              ElementsAre(kProtocol,
                          sm("deletePeerCellResetHistory() Deleting entry for cell unit : 2, "
                             "causeIdx : 1"),
                          "- 2.0.1"));
}

TEST_F(ResetHistorySmReactors, AnOwnHistoryReactorReexaminesTheWholeHistory) {
  const auto reactor = Qel::make<ResetHistorySm::QelCurCellResetHistory>(history_, machine_.get());
  EXPECT_THAT(log(), IsEmpty());

  reactor->onRebootHistory(5);
  EXPECT_THAT(log(), ElementsAre(sm("handleCurCellResetHistoryUpdate() Enter: ")));
  reactor->onRebootHistoryqelImmediate();
  EXPECT_THAT(log(), ElementsAre(sm("handleCurCellResetHistoryUpdate() Enter: ")));
  reactor->onRebootHistory();
  EXPECT_THAT(log(), IsEmpty());

  const auto other = Qel::make<System::ResetCauseHistory>("other");
  reactor->notifierIs(other);
  EXPECT_THAT(log(), ElementsAre(sm("handleCurCellResetHistoryUpdate() Enter: ")));
  EXPECT_TRUE(reactor->isRegisteredNotifiee());
  reactor->notifierIs(nullptr);
  EXPECT_EQ(reactor->resetCauseHistory(), nullptr);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ResetHistorySmReactors, APeerHistoryReactorReexaminesTheWholeHistory) {
  const auto reactor = Qel::make<ResetHistorySm::QelPeerCellResetHistory>(history_, machine_.get());
  EXPECT_THAT(log(), IsEmpty());

  reactor->onRebootHistory(5);
  EXPECT_THAT(log(), ElementsAre(sm("handlePeerCellResetHistoryUpdate() Enter: ")));
  reactor->onRebootHistoryqelImmediate();
  EXPECT_THAT(log(), ElementsAre(sm("handlePeerCellResetHistoryUpdate() Enter: ")));
  reactor->onRebootHistory();
  EXPECT_THAT(log(), IsEmpty());

  const auto other = Qel::make<System::ResetCauseHistory>("other");
  reactor->notifierIs(other);
  EXPECT_THAT(log(), ElementsAre(sm("handlePeerCellResetHistoryUpdate() Enter: ")));
  EXPECT_TRUE(reactor->isRegisteredNotifiee());
  reactor->notifierIs(nullptr);
  EXPECT_EQ(reactor->resetCauseHistory(), nullptr);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ResetHistorySmReactors, NoReactorReactsOnceItIsAZombieOrWithoutItsOwner) {
  const auto other = Qel::make<Redundancy::RedundancyStatus>("other");
  const auto otherHistory = Qel::make<System::ResetCauseHistory>("other");
  for (const bool isZombie : {true, false}) {
    const auto status = Qel::make<ResetHistorySm::QelRedundancyStatus>(status_, machine_.get());
    const auto own = Qel::make<ResetHistorySm::QelCurCellResetHistory>(history_, machine_.get());
    const auto peer = Qel::make<ResetHistorySm::QelPeerCellResetHistory>(history_, machine_.get());
    if (isZombie) {
      status->qelDoZombieReactors(true);
      own->qelDoZombieReactors(true);
      peer->qelDoZombieReactors(true);
    } else {
      status->ownerIs(nullptr);
      own->ownerIs(nullptr);
      peer->ownerIs(nullptr);
    }

    status->onProtocol();
    status->onSwitchoverCapable();
    status->notifierIs(other);
    own->onRebootHistory(0);
    own->onRebootHistoryqelImmediate();
    own->notifierIs(otherHistory);
    peer->onRebootHistory(0);
    peer->onRebootHistoryqelImmediate();
    peer->notifierIs(otherHistory);
  }
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ResetHistorySmReactors, ASwitchThatIsOnAlreadyIsNotPassedOn) {
  const auto reactor = Qel::make<ResetHistorySm::QelCurCellResetHistory>(history_, machine_.get());
  EXPECT_FALSE(isOn(reactor));

  reactor->hasNotificationActiveIs(true);
  EXPECT_THAT(log(), ElementsAre(sm("handleCurCellResetHistoryUpdate() Enter: ")));
  reactor->hasNotificationActiveIs(true);
  EXPECT_THAT(log(), IsEmpty());
  reactor->hasNotificationActiveIs(false);
  EXPECT_FALSE(isOn(reactor));
}

TEST_F(ResetHistorySmReactors, ANotificationAfterTheOwnerBeganToGoHasNoEffect) {
  machine_->hasNotificationActiveIs(true);
  cell(1).reloaded({{"Power loss", 1}});
  cell(2).reloaded({{"Panic", 2}});
  peerIsReachable();
  settle();
  const auto peerHistory = machine_->peerCellResetHistory();
  const auto atTheEnd = Qel::make<LastWords>(machine_->peerCellResetHistoryStatusDirMounter(), [&] {
    log_.note("the mounter goes");
    status_->statusIs(kProtocolWithoutPeer, false);
    cell(1).causeIs({"Watchdog", 3});
    cell(1).reloadIs(1, {});
    cell(2).reloadIs(1, {});
  });
  log();

  machine_ = nullptr;

  EXPECT_THAT(log(), ElementsAre("the mounter goes"));
}

TEST_F(ResetHistorySmReactors, AMachineLetGoInTheReactionOfAnotherHearsNothingOfIt) {
  auto second = made();
  machine_->hasNotificationActiveIs(true);
  second->hasNotificationActiveIs(true);
  rowIs({2, 0, 1});
  const auto hook = Qel::make<TableHook>(model_, [&](const ReloadCauseKey&) { second = nullptr; });
  log();

  protocolIs(kProtocolWithoutPeer);

  EXPECT_THAT(
      log(),
      ElementsAre(sm("handleRedundancyProtocol() Deleting peerCell reset history : coldStandby"),
                  sm("deletePeerCellResetHistory() Deleting entry for cell unit : 2, causeIdx : 1"),
                  "- 2.0.1"));
  EXPECT_EQ(ResetHistorySm::liveCount(), 1U);
}

}  // namespace MiscSnmp::Agent
