#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Cell/Cell.h"
#include "MiscSnmpAgent/RandomWalk.h"
#include "MiscSnmpAgent/RandomWorld.h"
#include "Qel/Trace.h"
#include "support/LiveObjects.h"
#include "support/Random.h"

namespace MiscSnmp::Agent {
namespace {

constexpr int kUsualSteps = 100000;
// After so many steps a new world begins, from nothing.
constexpr int kStepsOfWorld = 400;

// Looks on while things happen to a world, and goes before it.
class Onlooker {
 public:
  Onlooker() = default;
  Onlooker(const Onlooker&) = delete;
  Onlooker& operator=(const Onlooker&) = delete;
  virtual ~Onlooker() = default;
  // Called after each step; what it found wrong, or nothing.
  virtual std::string afterStep() { return {}; }
};

// Walks that stand in the table and move now and then, also while it is being rebuilt.
class StandingWalks final : public Onlooker {
 public:
  StandingWalks(RandomWorld& world, support::Random& random)
      : world_(world), random_(random), walks_(3, RandomWalk(world.mib(), world.recorder())) {
    world.recorder().duringIs([this](const expected::Change& change) {
      for (RandomWalk& walk : walks_) {
        if (!change.came) walk.rowWent(change.key);
        move(walk);
      }
    });
  }
  ~StandingWalks() override { world_.recorder().duringIs({}); }

  std::string afterStep() override {
    for (RandomWalk& walk : walks_) {
      move(walk);
      if (!walk.problem().empty()) return walk.problem();
    }
    return {};
  }

 private:
  void move(RandomWalk& walk) {
    if (random_.below(4) != 0) return;
    if (walk.isAtEnd()) {
      walk.begin(anyStart());
    } else {
      walk.advance();
    }
  }
  std::optional<ReloadCauseKey> anyStart() {
    if (random_.below(2) == 0) return std::nullopt;
    return ReloadCauseKey(random_.below(4), random_.below(2), random_.below(4));
  }

  RandomWorld& world_;
  support::Random& random_;
  std::vector<RandomWalk> walks_;
};

// Random things happen to a cell; after each of them the table, and what its observers heard, must
// be what the plain twin says.
class RandomHistories : public support::LiveObjectsTest {
 protected:
  RandomHistories() {
    std::cout << random_.replay() << std::endl;
    // Documents that do not fit are reported by the database; anything else would be news.
    Qel::traceSinkIs([this](const Qel::TraceRecord& record) {
      if (!(record.facility == "Kavra")) trace_ = record.text.stdString();
    });
  }
  ~RandomHistories() override {
    Qel::traceSinkIs({});
    Cell::cellIdIs(1);
  }

  // Lets `steps` things happen, world after world; `onlooker` makes the one that each world has.
  template <class NewOnlooker>
  void run(int steps, const NewOnlooker& newOnlooker) {
    for (int step = 0; step < steps && !HasFatalFailure();) {
      const std::ptrdiff_t objects = newObjects();
      {
        RandomWorld world(random_);
        const std::unique_ptr<Onlooker> onlooker = newOnlooker(world);
        const int end = std::min(steps, step + kStepsOfWorld);
        while (step < end && !HasFatalFailure()) happen(world, *onlooker, step++);
      }
      ASSERT_EQ(newObjects(), objects) << "objects were left over before " << place(step);
    }
  }

  support::Random random_;

 private:
  std::string place(int step) const {
    return "step " + std::to_string(step) + "; " + random_.replay();
  }
  void happen(RandomWorld& world, Onlooker& onlooker, int step) {
    const char* happened = world.step();
    ASSERT_EQ(world.difference(), "") << "when " << happened << ", in " << place(step);
    ASSERT_EQ(onlooker.afterStep(), "") << "when " << happened << ", in " << place(step);
    ASSERT_EQ(trace_, "") << "when " << happened << ", in " << place(step);
  }

  std::string trace_;
};

TEST_F(RandomHistories, LeaveTheTableThatTheRulesCallFor) {
  run(support::randomSteps(kUsualSteps), [](RandomWorld&) { return std::make_unique<Onlooker>(); });
}

TEST_F(RandomHistories, LetStandingWalksVisitEachRowThatStaysOnce) {
  run(support::randomSteps(kUsualSteps),
      [this](RandomWorld& world) { return std::make_unique<StandingWalks>(world, random_); });
}

}  // namespace
}  // namespace MiscSnmp::Agent
