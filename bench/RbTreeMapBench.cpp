// The ordered map of counted rows beside std::map of shared pointers: look-up, insertion with the
// end of all, removal one by one, walk. Read the ratios within one run, never the times.
#include "Qel/RbTreeMap.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <memory>

#include "Qel/Types.h"

namespace {

class Row final : public Qel::PtrInterface, public Qel::RbTreeMapLinks {
 public:
  explicit Row(U32 key) : key_(key) {}
  const U32& fwkKey() const noexcept { return key_; }

 private:
  const U32 key_;
};

using QelMap = Qel::RbTreeMap<Row, U32>;
using StdMap = std::map<U32, std::shared_ptr<std::uint64_t>>;

// Spreads the keys, so that neither map sees them in order.
U32 scatter(U32 i) { return i * 2654435761U; }

void fill(QelMap& map, U32 count) {
  for (U32 i = 0; i < count; ++i) map.rowIs(Qel::make<Row>(scatter(i)));
}

void fill(StdMap& map, U32 count) {
  for (U32 i = 0; i < count; ++i) map[scatter(i)] = std::make_shared<std::uint64_t>(i);
}

template <class Map>
void Insert(benchmark::State& state) {
  const auto count = static_cast<U32>(state.range(0));
  for (auto _ : state) {
    Map map;
    fill(map, count);
    benchmark::DoNotOptimize(map);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void remove(QelMap& map, U32 key) { map.rowDel(key); }

void remove(StdMap& map, U32 key) { map.erase(key); }

template <class Map>
void Delete(benchmark::State& state) {
  const auto count = static_cast<U32>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    Map map;
    fill(map, count);
    state.ResumeTiming();
    for (U32 i = 0; i < count; ++i) remove(map, scatter(i));
    benchmark::DoNotOptimize(map);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map>
void Find(benchmark::State& state) {
  const auto count = static_cast<U32>(state.range(0));
  Map map;
  fill(map, count);
  U32 i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(map[scatter(i)]);
    i = i + 1 == count ? 0 : i + 1;
  }
}

void WalkQel(benchmark::State& state) {
  QelMap map;
  fill(map, static_cast<U32>(state.range(0)));
  for (auto _ : state) {
    for (auto it = map.iteratorConst(); it; ++it) benchmark::DoNotOptimize(it.key());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void WalkStd(benchmark::State& state) {
  StdMap map;
  fill(map, static_cast<U32>(state.range(0)));
  for (auto _ : state) {
    for (const auto& [key, value] : map) benchmark::DoNotOptimize(key);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace

BENCHMARK_TEMPLATE(Insert, QelMap)->Arg(100)->Arg(10000);
BENCHMARK_TEMPLATE(Insert, StdMap)->Arg(100)->Arg(10000);
BENCHMARK_TEMPLATE(Delete, QelMap)->Arg(100)->Arg(10000);
BENCHMARK_TEMPLATE(Delete, StdMap)->Arg(100)->Arg(10000);
BENCHMARK_TEMPLATE(Find, QelMap)->Arg(100)->Arg(10000);
BENCHMARK_TEMPLATE(Find, StdMap)->Arg(100)->Arg(10000);
BENCHMARK(WalkQel)->Arg(10000);
BENCHMARK(WalkStd)->Arg(10000);
