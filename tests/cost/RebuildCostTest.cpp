// What the rows of a cell take from the allocator, exactly.
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "Cell/Cell.h"
#include "Kavra/EntityManager.h"
#include "MiscSnmp/GeneralMib.h"
#include "MiscSnmpAgent/ResetHistorySm.h"
#include "Redundancy/RedundancyStatus.h"
#include "System/ResetCauseHistory.h"
#include "cost/Allocations.h"
#include "support/DocumentFeed.h"
#include "support/LiveObjects.h"
#include "support/Reloads.h"

namespace {

using Causes = std::vector<System::ResetCause>;

constexpr U32 kMany = 10'000;

Causes causesAt(double time, U32 count = kMany) {
  return Causes(count, System::ResetCause("Fan failure", time));
}

class RebuildCostTest : public support::LiveObjectsTest {
 protected:
  RebuildCostTest() {
    Cell::cellIdIs(1);
    history_->rebootHistoryIs(0);
  }

  Qel::Ptr<MiscSnmp::Agent::ResetHistorySm> started(const char* cellType) const {
    auto machine = MiscSnmp::Agent::ResetHistorySm::ResetHistorySmIs(
        Qel::make<Redundancy::RedundancyStatus>("status"), model_, history_,
        Qel::make<Kavra::EntityManager>(Qel::make<support::DocumentFeed>()), cellType);
    machine->hasNotificationActiveIs(true);
    return machine;
  }

  // The objects that `call` makes, whether or not it keeps them.
  template <class Call>
  static std::size_t objectsOf(const Call& call) {
    const std::size_t before = cost::allocations().made;
    call();
    return cost::allocations().made - before;
  }

  void causesAre(const Causes& causes) const { history_->rebootHistory(0)->causeQIs(causes); }
  std::size_t rows() const { return model_->reloadCauseTable().members(); }

  const Qel::Ptr<MiscSnmp::GeneralMib> model_ = MiscSnmp::generalMibFactory("generalMib");
  const Qel::Ptr<System::ResetCauseHistory> history_ =
      Qel::make<System::ResetCauseHistory>("history");
};

TEST_F(RebuildCostTest, ARebuildMakesAnObjectForEachRowAndOneForEachCause) {
  const auto machine = started("supervisor");
  for (const U32 count : {48U, kMany}) {
    const Causes first = causesAt(1.0, count);
    const Causes second = causesAt(2.0, count);
    EXPECT_EQ(objectsOf([&] { causesAre(first); }), count + 2 * count);
    EXPECT_EQ(objectsOf([&] { causesAre(second); }), count + 2 * count);
    EXPECT_EQ(rows(), 2 * count);
  }
}

TEST_F(RebuildCostTest, CausesThatStandAlreadyMakeNothing) {
  const auto machine = started("linecard");
  const Causes causes = causesAt(1.0);
  causesAre(causes);
  EXPECT_EQ(objectsOf([&] { causesAre(causes); }), 0U);
  EXPECT_EQ(rows(), kMany);
}

TEST_F(RebuildCostTest, ARowTakesAtMost128OctetsWhereItIsFoundQuicklyToo) {
  const auto reload = support::reload();
  const std::size_t before = cost::allocations().octets;
  for (U32 cause = 1; cause <= kMany; ++cause) model_->reloadCauseTableIs({0, 0, cause}, reload);
  const std::size_t rowsAlone = cost::allocations().octets - before;
  for (U32 cause = kMany; cause > 0; --cause) model_->reloadCauseTable().find({0, 0, cause});
  const std::size_t all = cost::allocations().octets - before;
  EXPECT_EQ(rowsAlone, 80 * kMany);
  EXPECT_GT(all, rowsAlone);
  EXPECT_LE(all, 128 * kMany);
  EXPECT_EQ(rows(), kMany);
}

TEST_F(RebuildCostTest, FindingKeepsNoneOfTheMemoryThatItCouldNotHaveWhole) {
  const auto reload = support::reload();
  for (U32 cause = 1; cause <= kMany; ++cause) model_->reloadCauseTableIs({0, 0, cause}, reload);
  for (const int given : {0, 1}) {
    const std::size_t before = cost::allocations().octets;
    cost::arrayIsRefusedAfter(given);
    for (U32 cause = kMany; cause > 0 && !cost::isArrayRefused(); --cause) {
      EXPECT_TRUE(model_->reloadCauseTable().find({0, 0, cause}));
    }
    EXPECT_TRUE(cost::isArrayRefused());
    EXPECT_EQ(cost::allocations().octets, before) << given;
  }
}

}  // namespace
