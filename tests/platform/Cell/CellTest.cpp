#include "Cell/Cell.h"

#include <gtest/gtest.h>

namespace Cell {
namespace {

TEST(CellTest, IsTheFirstSupervisorUntilToldOtherwise) {
  EXPECT_EQ(cellId(), 1U);
  cellIdIs(2);
  EXPECT_EQ(cellId(), 2U);
  cellIdIs(1);
  EXPECT_EQ(cellId(), 1U);
}

}  // namespace
}  // namespace Cell
