#include "MiscSnmpAgent/PeerCellResetInstanceSm.h"

#include "MiscSnmpAgent/AgentFixture.h"

namespace MiscSnmp::Agent {

using testing::ElementsAre;

class PeerCellResetInstanceSmTest : public AgentFixture {};

TEST_F(PeerCellResetInstanceSmTest, TracesTheKeyOneBlankAfterItsSignature) {
  const auto owner = made();
  log();

  const auto machine = PeerCellResetInstanceSm::PeerCellResetInstanceSmIs(7, nullptr, owner);

  EXPECT_THAT(
      log(),
      ElementsAre("MiscSnmp 8: void MiscSnmp::Agent::PeerCellResetInstanceSm::handleInitialized() "
                  "key : 7",
                  "MiscSnmp 8: void MiscSnmp::Agent::PeerCellResetInstanceSm::"
                  "handlePeerCellResetInstanceUpdate() Enter ",
                  "MiscSnmp 1: void MiscSnmp::Agent::ResetHistorySm::handlePeerCellResetHistory() "
                  "switchoverCapable : 0",
                  "MiscSnmp 1: void MiscSnmp::Agent::ResetHistorySm::handlePeerCellResetHistory() "
                  "Peer ReloadCauseAgent is still warming up: 0"));
  EXPECT_EQ(machine->fwkType()->name(), "MiscSnmp::Agent::PeerCellResetInstanceSm");
}

TEST_F(PeerCellResetInstanceSmTest, RecordsNameTheModelAndTheHandlers) {
  const auto owner = made();
  log();

  const auto machine = PeerCellResetInstanceSm::PeerCellResetInstanceSmIs(0, nullptr, owner);

  ASSERT_EQ(log_.records().size(), 4U);
  EXPECT_EQ(log_.records()[0].file, "MiscSnmpAgent");
  EXPECT_EQ(log_.records()[0].function, "handleInitialized");
  EXPECT_EQ(log_.records()[1].file, "MiscSnmpAgent");
  EXPECT_EQ(log_.records()[1].function, "handlePeerCellResetInstanceUpdate");
}

TEST_F(PeerCellResetInstanceSmTest, ItsHandlerRebuildsThePeersRows) {
  cell(1).reloaded({{"Power loss", 1}});
  cell(2).reloaded({{"Panic", 2}});
  peerIsReachable();
  const auto owner = started();
  log_.levelIs("MiscSnmp", 0);
  log();

  owner->peerCellResetInstanceSm()[0]->handlePeerCellResetInstanceUpdate();

  EXPECT_THAT(log(), ElementsAre("- 2.0.1", "+ 2.0.1"));
}

}  // namespace MiscSnmp::Agent
