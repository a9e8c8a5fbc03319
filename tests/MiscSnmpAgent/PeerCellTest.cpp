#include "MiscSnmpAgent/PeerCell.h"

#include <gtest/gtest.h>

namespace MiscSnmp::Agent {

TEST(PeerCell, IsTheOtherOfTheTwoSupervisors) {
  EXPECT_EQ(peerCellId(), 2U);
  Cell::cellIdIs(2);
  EXPECT_EQ(peerCellId(), 1U);
  Cell::cellIdIs(1);
}

}  // namespace MiscSnmp::Agent
