#include "MiscSnmpAgent/CurCellResetInstanceSm.h"

#include "MiscSnmpAgent/AgentFixture.h"

namespace MiscSnmp::Agent {

using testing::ElementsAre;

class CurCellResetInstanceSmTest : public AgentFixture {};

TEST_F(CurCellResetInstanceSmTest, TracesTheKeyStraightAfterItsSignature) {
  const auto owner = made();
  log();

  const auto machine = CurCellResetInstanceSm::CurCellResetInstanceSmIs(7, nullptr, owner);

  EXPECT_THAT(
      log(),
      ElementsAre("MiscSnmp 8: void MiscSnmp::Agent::CurCellResetInstanceSm::handleInitialized()"
                  "key : 7",
                  "MiscSnmp 8: void MiscSnmp::Agent::CurCellResetInstanceSm::"
                  "handleCurCellResetInstanceUpdate() Enter ",
                  "MiscSnmp 1: void MiscSnmp::Agent::ResetHistorySm::handleCurCellResetHistory() "
                  "resetInstance : null"));
  EXPECT_EQ(machine->fwkType()->name(), "MiscSnmp::Agent::CurCellResetInstanceSm");
}

TEST_F(CurCellResetInstanceSmTest, RecordsNameTheModelAndTheHandlers) {
  const auto owner = made();
  log();

  const auto machine = CurCellResetInstanceSm::CurCellResetInstanceSmIs(0, nullptr, owner);

  ASSERT_EQ(log_.records().size(), 3U);
  EXPECT_EQ(log_.records()[0].file, "MiscSnmpAgent");
  EXPECT_EQ(log_.records()[0].function, "handleInitialized");
  EXPECT_EQ(log_.records()[1].file, "MiscSnmpAgent");
  EXPECT_EQ(log_.records()[1].function, "handleCurCellResetInstanceUpdate");
}

TEST_F(CurCellResetInstanceSmTest, ItsHandlerRebuildsTheOwnRows) {
  cell(1).reloaded({{"Power loss", 1}});
  const auto owner = started();
  log_.levelIs("MiscSnmp", 0);
  log();

  owner->curCellResetInstanceSm()[0]->handleCurCellResetInstanceUpdate();

  EXPECT_THAT(log(), ElementsAre("- 0.0.1", "- 1.0.1", "+ 0.0.1", "+ 1.0.1"));
}

}  // namespace MiscSnmp::Agent
