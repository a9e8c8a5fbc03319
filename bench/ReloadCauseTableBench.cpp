// What a request costs in the table's own callbacks: a walk that starts at the hinted row beside
// one that starts at the first row, and the derived values at both ends of a cause queue. What a
// row takes from the allocator, its place in the array in which it is found among it.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <array>
#include <cstddef>
#include <vector>

#include "MiscSnmp/GeneralMib.h"
#include "NorvekGeneralMIB/NetSnmp.h"
#include "NorvekGeneralMIB/ReloadCauseTableIteration.h"
#include "System/ResetInstance.h"

namespace {

constexpr std::array<oid, 11> kTable{1, 3, 6, 1, 4, 1, 32473, 3, 24, 1, 1};

// A table of `rows` causes of one reload, and the net-snmp records that the callbacks take.
class Walk {
 public:
  explicit Walk(U32 rows) {
    std::vector<System::ResetCause> causes(rows, System::ResetCause("Power loss", 1700000000.9));
    const auto instance = Qel::make<System::ResetInstance>(U32{0});
    instance->causeQIs(causes);
    for (U32 i = 1; i <= rows; ++i) {
      mib_->reloadCauseTableIs(MiscSnmp::ReloadCauseKey(0, 0, i), instance);
    }
    info_.myvoid = mib_.get();
    for (int i = 0; i < 3; ++i) {
      snmp_varlist_add_variable(&indexes_, kTable.data(), kTable.size(), ASN_UNSIGNED, nullptr, 0);
    }
  }
  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;
  ~Walk() { snmp_free_varbind(indexes_); }

  // Reaches row (0, 0, cause), from the hint or from the first row on; returns the steps taken.
  U32 reach(U32 cause, bool hinted) {
    const std::array<u_long, 3> key{0, 0, cause};
    netsnmp_variable_list* index = indexes_;
    for (const u_long component : key) {
      snmp_set_var_typed_value(index, ASN_UNSIGNED, &component, sizeof component);
      index = index->next_variable;
    }
    netsnmp_table_request_info hint{};
    hint.number_indexes = 3;
    hint.indexes = indexes_;
    void* loop = hinted ? &hint : nullptr;
    void* data = nullptr;
    U32 steps = 1;
    netsnmp_variable_list* row =
        norvekReloadCauseTable_get_first_data_point(&loop, &data, indexes_, &info_);
    while (row != nullptr && lastIndex() != cause) {
      row = norvekReloadCauseTable_get_next_data_point(&loop, &data, indexes_, &info_);
      ++steps;
    }
    norvekReloadCauseTable_free_loop_context_at_end(loop, &info_);
    return steps;
  }

  const MiscSnmp::GeneralMib& mib() const { return *mib_; }

 private:
  U32 lastIndex() const {
    return static_cast<U32>(*indexes_->next_variable->next_variable->val.integer);
  }

  const Qel::Ptr<MiscSnmp::GeneralMib> mib_ = MiscSnmp::generalMibFactory("bench");
  netsnmp_iterator_info info_{};
  netsnmp_variable_list* indexes_ = nullptr;
};

void ReachLastRow(benchmark::State& state, bool hinted) {
  const auto rows = static_cast<U32>(state.range(0));
  Walk walk(rows);
  U32 steps = 0;
  for (auto _ : state) steps = walk.reach(rows, hinted);
  state.counters["steps"] = steps;
}

void ReadDescription(benchmark::State& state, double place) {
  const auto rows = static_cast<U32>(state.range(0));
  const Walk walk(rows);
  const auto cause = static_cast<U32>(1 + place * (rows - 1));
  const auto row = walk.mib().reloadCauseTable()[MiscSnmp::ReloadCauseKey(0, 0, cause)];
  for (auto _ : state) benchmark::DoNotOptimize(row->causeDesc());
}

// Octets that the allocator has given away.
std::size_t taken() {
  const struct mallinfo2 given = ::mallinfo2();
  return given.uordblks + given.hblkhd;
}

void RowMemory(benchmark::State& state) {
  const auto rows = static_cast<U32>(state.range(0));
  const auto instance = Qel::make<System::ResetInstance>(U32{0});
  double octets = 0;
  for (auto _ : state) {
    const auto mib = MiscSnmp::generalMibFactory("bench");
    const std::size_t before = taken();
    for (U32 i = 1; i <= rows; ++i) {
      mib->reloadCauseTableIs(MiscSnmp::ReloadCauseKey(0, 0, i), instance);
    }
    // Out of their order, so that they are found in an array.
    for (U32 i = rows; i > 0; --i) {
      benchmark::DoNotOptimize(mib->reloadCauseTable().find(MiscSnmp::ReloadCauseKey(0, 0, i)));
    }
    octets = static_cast<double>(taken() - before) / rows;
  }
  state.counters["octets"] = octets;
}

}  // namespace

BENCHMARK(RowMemory)->Arg(10000);
BENCHMARK_CAPTURE(ReachLastRow, Hinted, true)->Arg(10)->Arg(1000)->Arg(65536);
BENCHMARK_CAPTURE(ReachLastRow, FromFirst, false)->Arg(10)->Arg(1000)->Arg(65536);
BENCHMARK_CAPTURE(ReadDescription, First, 0.0)->Arg(1000)->Arg(65536);
BENCHMARK_CAPTURE(ReadDescription, Middle, 0.5)->Arg(1000)->Arg(65536);
BENCHMARK_CAPTURE(ReadDescription, Last, 1.0)->Arg(1000)->Arg(65536);
