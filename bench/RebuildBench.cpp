// What a change of the own cell costs on a supervisor, from the causes to the rows: a reload whose
// causes all change, one more cause, and one more reload before many.
#include <benchmark/benchmark.h>

#include <vector>

#include "Cell/Cell.h"
#include "Kavra/EntityManager.h"
#include "Kavra/Feed.h"
#include "MiscSnmp/GeneralMib.h"
#include "MiscSnmpAgent/ResetHistorySm.h"
#include "Redundancy/RedundancyStatus.h"
#include "System/ResetCauseHistory.h"

namespace {

using Causes = std::vector<System::ResetCause>;

class Nothing final : public Kavra::Feed {};

class Cell1 {
 public:
  Cell1() {
    Cell::cellIdIs(1);
    history_->rebootHistoryIs(0);
    machine_ = MiscSnmp::Agent::ResetHistorySm::ResetHistorySmIs(
        Qel::make<Redundancy::RedundancyStatus>("status"), mib_, history_,
        Qel::make<Kavra::EntityManager>(Qel::make<Nothing>()), "supervisor");
    machine_->hasNotificationActiveIs(true);
  }
  void causesAre(const Causes& causes) { history_->rebootHistory(0)->causeQIs(causes); }
  System::ResetCauseHistory& history() { return *history_; }

 private:
  const Qel::Ptr<MiscSnmp::GeneralMib> mib_ = MiscSnmp::generalMibFactory("bench");
  const Qel::Ptr<System::ResetCauseHistory> history_ =
      Qel::make<System::ResetCauseHistory>("history");
  Qel::Ptr<MiscSnmp::Agent::ResetHistorySm> machine_;
};

Causes causesAt(benchmark::IterationCount time, U32 count) {
  return Causes(count, System::ResetCause("Fan failure", static_cast<double>(time)));
}

void AllCausesChange(benchmark::State& state) {
  const auto count = static_cast<U32>(state.range(0));
  Cell1 cell;
  const Causes causes[] = {causesAt(1, count), causesAt(2, count)};
  bool second = false;
  for (auto _ : state) cell.causesAre(causes[second = !second]);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void AddReload(benchmark::State& state) {
  const auto count = static_cast<U32>(state.range(0));
  Cell1 cell;
  for (U32 index = 1; index < count; ++index) cell.history().rebootHistoryIs(index);
  for (auto _ : state) {
    cell.history().rebootHistoryIs(count);
    cell.history().rebootHistoryDel(count);
  }
}

}  // namespace

BENCHMARK(AllCausesChange)->Arg(10)->Arg(1000)->Arg(10000)->Arg(65536);
BENCHMARK(AddReload)->Arg(10)->Arg(1000);
