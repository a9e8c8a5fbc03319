// The agent's log, line by line, through what happens to a pair of supervisors.
#include "MiscSnmpAgent/AgentFixture.h"

namespace MiscSnmp::Agent {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

std::string line(int level, const std::string& text) {
  return "MiscSnmp " + std::to_string(level) + ": " + text;
}

// Lines of the state machine and of its instance machines.
std::string sm(int level, const std::string& text) {
  return line(level, "void MiscSnmp::Agent::ResetHistorySm::" + text);
}
std::string own(const std::string& text) {
  return line(8, "void MiscSnmp::Agent::CurCellResetInstanceSm::" + text);
}
std::string peer(const std::string& text) {
  return line(8, "void MiscSnmp::Agent::PeerCellResetInstanceSm::" + text);
}

std::string deleting(const std::string& handler, U32 unit, U32 cause) {
  return sm(8, handler + "() Deleting entry for cell unit : " + std::to_string(unit) +
                   ", causeIdx : " + std::to_string(cause));
}

}  // namespace

class Flows : public AgentFixture {
 protected:
  static constexpr char kMountLine[] = "handleRedundancyProtocol() rootPath : , path : ";

  // A machine that runs, its history empty of reloads; the log begins after the start.
  void SetUp() override {
    machine_ = started();
    log();
  }
  // A machine that has mounted the peer's history; the log begins after that.
  void mounted() {
    cell(2).reloaded({{"Peer panic", 5}});
    peerIsReachable();
    settle();
    log();
  }
  std::string reloadShown() const { return shown(history_->rebootHistory(0)); }
  std::string peerShown() const { return shown(machine_->peerCellResetHistory()); }
  std::string peerReloadShown() const {
    return shown(machine_->peerCellResetHistory()->rebootHistory(0));
  }
  static std::string completed(const std::string& entity) {
    return line(1,
                "virtual void MiscSnmp::Agent::PeerCellResetHistoryStatusDirMounter::"
                "handleComplete(const Ptr&) mountPath : cell/2/sys/reset/history, entity : " +
                    entity);
  }

  Qel::Ptr<ResetHistorySm> machine_;
};

TEST_F(AgentFixture, StartingEmptiesTheTableAndWritesTheOwnRows) {
  rowIs({7, 3, 1});
  rowIs({2, 0, 4});
  cell(1).reloaded({kPowerLoss});
  log();

  const auto machine = made();

  EXPECT_THAT(
      log(),
      ElementsAre(
          sm(8, "handleInitialized() Enter: "), deleting("deleteAllCellResetHistory", 2, 4),
          "- 2.0.4", deleting("deleteAllCellResetHistory", 7, 1), "- 7.3.1",
          sm(1, "handleCurCellResetHistory() resetInstance : " + shown(history_->rebootHistory(0))),
          "+ 0.0.1", "+ 1.0.1",
          sm(8, "handleRedundancyProtocol() Deleting peerCell reset history : none")));
}

TEST_F(AgentFixture, SwitchingOnFollowsTheReloadThatStands) {
  cell(1).reloaded({kPowerLoss});
  const auto machine = made();
  log();

  machine->hasNotificationActiveIs(true);

  EXPECT_THAT(log(), ElementsAre(sm(8, "handleCurCellResetHistoryUpdate() Enter: "),
                                 sm(8, "handleCurCellResetHistoryUpdate(U32) key : 0"),
                                 own("handleInitialized()key : 0"),
                                 own("handleCurCellResetInstanceUpdate() Enter "),
                                 deleting("deleteCurCellResetHistory", 0, 1), "- 0.0.1",
                                 deleting("deleteCurCellResetHistory", 1, 1), "- 1.0.1",
                                 sm(1, "handleCurCellResetHistory() resetInstance : " +
                                           shown(history_->rebootHistory(0))),
                                 "+ 0.0.1", "+ 1.0.1"));
}

TEST_F(AgentFixture, StartingWithoutAReloadAndWithAPeerStartsTheMount) {
  peerIsReachable();

  const auto machine = started();

  EXPECT_THAT(log(), ElementsAre(sm(8, "handleInitialized() Enter: "),
                                 sm(1, "handleCurCellResetHistory() resetInstance : null"),
                                 sm(8,
                                    "handleRedundancyProtocol() rootPath : , path : "
                                    "cell/2/sys/reset/history"),
                                 sm(8, "handleCurCellResetHistoryUpdate() Enter: ")));
}

TEST_F(AgentFixture, TracesOfDecisionsAloneComeAtLevelOne) {
  log_.levelIs("MiscSnmp", 1);
  cell(1).reloaded({});

  const auto machine = made();

  EXPECT_THAT(log(), ElementsAre(sm(1, "handleCurCellResetHistory() resetInstance : " +
                                           shown(history_->rebootHistory(0)))));
}

TEST_F(AgentFixture, RecordsNameTheModelTheHandlerAndAPosition) {
  cell(1).reloaded({});
  const auto machine = started();

  std::vector<std::string> functions;
  for (const auto& record : log_.records()) {
    EXPECT_EQ(record.file, "MiscSnmpAgent");
    EXPECT_GT(record.position, 0);
    functions.push_back(record.function.stdString());
  }
  EXPECT_THAT(functions,
              ElementsAre("handleInitialized", "handleCurCellResetHistory",
                          "handleRedundancyProtocol", "handleCurCellResetHistoryUpdate",
                          "handleCurCellResetHistoryUpdate", "handleInitialized",
                          "handleCurCellResetInstanceUpdate", "handleCurCellResetHistory"));
}

TEST_F(Flows, AFirstReloadIsRecorded) {
  cell(1).reloaded({kPowerLoss, kWatchdog});

  EXPECT_THAT(log(),
              ElementsAre(sm(8, "handleCurCellResetHistoryUpdate() Enter: "),
                          sm(8, "handleCurCellResetHistoryUpdate(U32) key : 0"),
                          own("handleInitialized()key : 0"),
                          own("handleCurCellResetInstanceUpdate() Enter "),
                          sm(1, "handleCurCellResetHistory() resetInstance : " + reloadShown()),
                          "+ 0.0.1", "+ 1.0.1", "+ 0.0.2", "+ 1.0.2"));
}

TEST_F(Flows, AnotherReloadTakesThePlaceOfTheLatest) {
  cell(1).reloaded({kPowerLoss});
  log();

  cell(1).reloaded({kWatchdog});

  EXPECT_THAT(log(),
              ElementsAre(own("handleCurCellResetInstanceUpdate() Enter "),
                          deleting("deleteCurCellResetHistory", 0, 1), "- 0.0.1",
                          deleting("deleteCurCellResetHistory", 1, 1), "- 1.0.1",
                          sm(1, "handleCurCellResetHistory() resetInstance : " + reloadShown()),
                          "+ 0.0.1", "+ 1.0.1"));
  EXPECT_THAT(rows(), ElementsAre("0.0.1 Watchdog @1700000001", "1.0.1 Watchdog @1700000001"));
}

TEST_F(Flows, ACauseIsAdded) {
  cell(1).reloaded({kPowerLoss});
  log();

  history_->rebootHistory(0)->causeQPush(kWatchdog);

  EXPECT_THAT(log(),
              ElementsAre(own("handleCurCellResetInstanceUpdate() Enter "),
                          deleting("deleteCurCellResetHistory", 0, 1), "- 0.0.1",
                          deleting("deleteCurCellResetHistory", 1, 1), "- 1.0.1",
                          sm(1, "handleCurCellResetHistory() resetInstance : " + reloadShown()),
                          "+ 0.0.1", "+ 1.0.1", "+ 0.0.2", "+ 1.0.2"));
}

TEST_F(Flows, AnOlderReloadChangesAndEveryOtherOneIsIgnored) {
  cell(1).reloaded({kPowerLoss});
  cell(1).reloadIs(3, {kWatchdog});
  log();

  cell(1).reloadIs(5, {kWatchdog});

  EXPECT_THAT(
      log(), ElementsAre(sm(8, "handleCurCellResetHistoryUpdate() Enter: "),
                         sm(8, "handleCurCellResetHistoryUpdate(U32) key : 0"),
                         sm(8, "handleCurCellResetHistoryUpdate(U32) key : 3"),
                         sm(8, "handleCurCellResetHistoryUpdate(U32) Ignoring updates for key : 3"),
                         sm(8, "handleCurCellResetHistoryUpdate(U32) key : 5"),
                         sm(8,
                            "handleCurCellResetHistoryUpdate(U32) Ignoring updates for key : "
                            "5")));
}

TEST_F(Flows, TheLatestReloadIsForgottenAndItsRowsStay) {
  cell(1).reloaded({kPowerLoss});
  log();

  cell(1).reloadDel(0);

  EXPECT_THAT(log(), ElementsAre(sm(8, "handleCurCellResetHistoryUpdate() Enter: ")));
  EXPECT_THAT(rows(), ElementsAre("0.0.1 Power loss @1700000000", "1.0.1 Power loss @1700000000"));
  EXPECT_TRUE(machine_->curCellResetInstanceSm().empty());
}

TEST_F(Flows, TheProtocolReachesThePeerAndItsHistoryIsMounted) {
  cell(2).reloaded({kPowerLoss});
  switchoverCapableIs(true);
  log();

  protocolIs(kProtocolWithPeer);
  EXPECT_THAT(log(), ElementsAre(sm(8, std::string(kMountLine) + "cell/2/sys/reset/history")));

  settle();
  EXPECT_THAT(
      log(),
      ElementsAre(completed(peerShown()), sm(8, "handlePeerCellResetHistoryUpdate() Enter: "),
                  sm(8, "handlePeerCellResetHistoryUpdate(U32) key : 0"),
                  peer("handleInitialized() key : 0"),
                  peer("handlePeerCellResetInstanceUpdate() Enter "),
                  sm(1, "handlePeerCellResetHistory() switchoverCapable : 1"),
                  sm(1, "handlePeerCellResetHistory() resetInstance : " + peerReloadShown() +
                            ", peerCellResetHistory :" + peerShown()),
                  "+ 2.0.1", sm(1, "handlePeerCellResetHistory() switchoverCapable : 1"),
                  deleting("deletePeerCellResetHistory", 2, 1), "- 2.0.1",
                  sm(1, "handlePeerCellResetHistory() resetInstance : " + peerReloadShown() +
                            ", peerCellResetHistory :" + peerShown()),
                  "+ 2.0.1"));
}

TEST_F(Flows, APeerThatWarmsUpIsMountedWithoutRows) {
  cell(2).reloaded({kPowerLoss});
  protocolIs(kProtocolWithPeer);
  log();

  settle();

  const auto warmingUp = {
      sm(1, "handlePeerCellResetHistory() switchoverCapable : 0"),
      sm(1, "handlePeerCellResetHistory() Peer ReloadCauseAgent is still warming up: 0")};
  std::vector<std::string> expected{
      completed(peerShown()), sm(8, "handlePeerCellResetHistoryUpdate() Enter: "),
      sm(8, "handlePeerCellResetHistoryUpdate(U32) key : 0"), peer("handleInitialized() key : 0"),
      peer("handlePeerCellResetInstanceUpdate() Enter ")};
  expected.insert(expected.end(), warmingUp);
  expected.insert(expected.end(), warmingUp);
  EXPECT_THAT(log(), ElementsAreArray(expected));
}

TEST_F(Flows, APeerWithoutItsLatestReloadIsMounted) {
  cell(2).reloadIs(4, {kPowerLoss});
  peerIsReachable();
  log();

  settle();

  EXPECT_THAT(
      log(),
      ElementsAre(completed(peerShown()), sm(8, "handlePeerCellResetHistoryUpdate() Enter: "),
                  sm(8, "handlePeerCellResetHistoryUpdate(U32) key : 4"),
                  sm(8, "handlePeerCellResetHistoryUpdate(U32) Ignoring updates for key : 4"),
                  sm(1, "handlePeerCellResetHistory() switchoverCapable : 1"),
                  sm(1, "handlePeerCellResetHistory()Last ResetHistory not available")));
}

TEST_F(Flows, TheMountFindsAnotherType) {
  peerPublishesAnotherType();
  peerIsReachable();
  log();

  settle();

  EXPECT_THAT(log(), ElementsAre(completed("null")));
  EXPECT_EQ(machine_->peerCellResetHistory(), nullptr);
}

TEST_F(Flows, ALaterMountFindsAnotherTypeAndTheHistoryGoesWithoutItsRows) {
  mounted();
  peerPublishesAnotherType();
  protocolIs(kProtocolWithoutPeer);
  machine_->peerCellResetHistoryIs(Qel::make<System::ResetCauseHistory>("left"));
  protocolIs(kProtocolWithPeer);
  log();

  settle();

  EXPECT_THAT(
      log(),
      ElementsAre(completed("null"), sm(1, "handlePeerCellResetHistory() switchoverCapable : 1"),
                  sm(1, "handlePeerCellResetHistory() peerCellResetHistory : null")));
}

TEST_F(Flows, ThePeersReloadChanges) {
  mounted();

  cell(2).causeIs(kWatchdog);

  EXPECT_THAT(
      log(), ElementsAre(peer("handlePeerCellResetInstanceUpdate() Enter "),
                         deleting("deletePeerCellResetHistory", 2, 1), "- 2.0.1",
                         sm(1, "handlePeerCellResetHistory() switchoverCapable : 1"),
                         sm(1, "handlePeerCellResetHistory() resetInstance : " + peerReloadShown() +
                                   ", peerCellResetHistory :" + peerShown()),
                         "+ 2.0.1", "+ 2.0.2"));
}

TEST_F(Flows, ThePeersLatestReloadIsForgottenAndComesBack) {
  mounted();

  cell(2).reloadDel(0);
  EXPECT_THAT(log(), ElementsAre(sm(8, "handlePeerCellResetHistoryUpdate() Enter: ")));

  // The machine of the forgotten reload stays: nobody looks at the new one.
  cell(2).reloaded({kWatchdog});
  EXPECT_THAT(log(), ElementsAre(sm(8, "handlePeerCellResetHistoryUpdate() Enter: "),
                                 sm(8, "handlePeerCellResetHistoryUpdate(U32) key : 0")));
  EXPECT_THAT(rows(), ElementsAre("2.0.1 Peer panic @5"));
}

TEST_F(Flows, ThePeerBecomesUnableToTakeOverAndAbleAgain) {
  mounted();

  switchoverCapableIs(false);
  EXPECT_THAT(log(), ElementsAre(sm(1, "handlePeerCellResetHistory() switchoverCapable : 0"),
                                 sm(1,
                                    "handlePeerCellResetHistory() Peer ReloadCauseAgent is still "
                                    "warming up: 0")));
  EXPECT_THAT(rows(), ElementsAre("2.0.1 Peer panic @5"));

  switchoverCapableIs(true);
  EXPECT_THAT(
      log(), ElementsAre(sm(1, "handlePeerCellResetHistory() switchoverCapable : 1"),
                         deleting("deletePeerCellResetHistory", 2, 1), "- 2.0.1",
                         sm(1, "handlePeerCellResetHistory() resetInstance : " + peerReloadShown() +
                                   ", peerCellResetHistory :" + peerShown()),
                         "+ 2.0.1"));
}

TEST_F(Flows, TheProtocolLosesThePeerAndReachesItAgain) {
  mounted();

  protocolIs(kProtocolWithoutPeer);
  EXPECT_THAT(
      log(),
      ElementsAre(sm(8, "handleRedundancyProtocol() Deleting peerCell reset history : coldStandby"),
                  deleting("deletePeerCellResetHistory", 2, 1), "- 2.0.1",
                  sm(1, "handlePeerCellResetHistory() switchoverCapable : 1"),
                  sm(1, "handlePeerCellResetHistory() peerCellResetHistory : null")));

  // Nothing is left to delete.
  protocolIs(Redundancy::RedundancyProtocol{77});
  EXPECT_THAT(log(), ElementsAre(sm(8,
                                    "handleRedundancyProtocol() Deleting peerCell reset history "
                                    ": RedundancyProtocol(77)")));

  protocolIs(kProtocolWithPeer);
  EXPECT_THAT(log(), ElementsAre(sm(8, std::string(kMountLine) + "cell/2/sys/reset/history")));
  settle();
  EXPECT_EQ(log().size(), 13U);
  EXPECT_THAT(rows(), ElementsAre("2.0.1 Peer panic @5"));
}

TEST_F(Flows, TheStatusIsReplaced) {
  mounted();
  const auto other = Qel::make<Redundancy::RedundancyStatus>("other");
  other->statusIs(kProtocolWithoutPeer, false);

  machine_->redundancyStatusIs(other);

  EXPECT_THAT(
      log(), ElementsAre(
                 sm(8, "handleRedundancyProtocol() Deleting peerCell reset history : coldStandby"),
                 deleting("deletePeerCellResetHistory", 2, 1), "- 2.0.1",
                 sm(1, "handlePeerCellResetHistory() switchoverCapable : 0"),
                 sm(1, "handlePeerCellResetHistory() Peer ReloadCauseAgent is still warming up: 0"),
                 sm(1, "handlePeerCellResetHistory() switchoverCapable : 0"),
                 sm(1,
                    "handlePeerCellResetHistory() Peer ReloadCauseAgent is still warming up: "
                    "0")));
}

TEST_F(Flows, TheOwnHistoryIsReplacedByOneWithoutALatestReload) {
  cell(1).reloaded({kPowerLoss});
  const auto other = Qel::make<System::ResetCauseHistory>("other");
  other->rebootHistoryIs(2);
  log();

  machine_->curCellResetHistoryIs(other);

  EXPECT_THAT(log(), ElementsAre(sm(8, "handleCurCellResetHistoryUpdate() Enter: "),
                                 sm(8, "handleCurCellResetHistoryUpdate(U32) key : 2"),
                                 sm(8,
                                    "handleCurCellResetHistoryUpdate(U32) Ignoring updates for "
                                    "key : 2")));
  EXPECT_TRUE(machine_->curCellResetInstanceSm().empty());
}

TEST_F(Flows, ThePeersHistoryIsReplacedWhileItsMachineStands) {
  mounted();
  const auto other = Qel::make<System::ResetCauseHistory>("other");
  const auto reload = other->rebootHistoryIs(0);

  machine_->peerCellResetHistoryIs(other);

  EXPECT_THAT(log(),
              ElementsAre(sm(8, "handlePeerCellResetHistoryUpdate() Enter: "),
                          sm(8, "handlePeerCellResetHistoryUpdate(U32) key : 0"),
                          sm(1, "handlePeerCellResetHistory() switchoverCapable : 1"),
                          deleting("deletePeerCellResetHistory", 2, 1), "- 2.0.1",
                          sm(1, "handlePeerCellResetHistory() resetInstance : " + shown(reload) +
                                    ", peerCellResetHistory :" + shown(other))));
}

TEST_F(Flows, TheMachineGoesWithoutAWordAndItsRowsStay) {
  cell(1).reloaded({kPowerLoss});
  mounted();
  const auto before = rows();

  machine_ = nullptr;
  cell(1).reloaded({kWatchdog});
  cell(1).reloadIs(1, {kWatchdog});
  cell(2).reloaded({});
  protocolIs(kProtocolWithoutPeer);
  switchoverCapableIs(false);
  settle();

  EXPECT_THAT(log(), IsEmpty());
  EXPECT_EQ(rows().size(), before.size());
}

}  // namespace MiscSnmp::Agent
