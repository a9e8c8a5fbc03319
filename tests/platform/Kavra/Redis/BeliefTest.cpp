#include "Kavra/Redis/Belief.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "support/Random.h"

namespace Kavra::Redis {
namespace {

ServerState at(const std::string& epoch, std::uint64_t lastId) {
  ServerState state;
  state.epoch = epoch;
  state.lastId = {lastId, 0};
  return state;
}

class BeliefTest : public testing::Test {
 protected:
  // Each is one answer of the server, a second after the one before.
  bool snapshot(const ServerState& state) { return belief_.snapshotIs(state, now_ += 1.0); }
  bool look(const ServerState& state) { return belief_.lookIs(state, now_ += 1.0); }
  void ring(std::uint64_t lastId) { belief_.ringIs(StreamId{lastId, 0}); }
  // Two answers tell it, so that it counts.
  void confirmed(const ServerState& state) {
    EXPECT_TRUE(snapshot(state));
    EXPECT_TRUE(look(state));
    EXPECT_TRUE(belief_.isConfirmed());
  }

  Belief belief_;
  double now_ = 0.0;
};

TEST_F(BeliefTest, HasNothingToServeAtFirst) {
  EXPECT_EQ(belief_.accepted(), std::nullopt);
  EXPECT_EQ(belief_.acceptedHeldAt(), std::nullopt);
  EXPECT_TRUE(belief_.rings());
}

TEST_F(BeliefTest, TakesTheFirstSnapshotAndIsNotSureOfIt) {
  EXPECT_TRUE(snapshot(at("e", 5)));
  EXPECT_EQ(belief_.accepted(), at("e", 5));
  EXPECT_FALSE(belief_.isConfirmed());
}

TEST_F(BeliefTest, IsSureOfAStateThatTwoAnswersTold) {
  EXPECT_TRUE(snapshot(at("e", 5)));
  EXPECT_TRUE(look(at("e", 5)));
  EXPECT_TRUE(belief_.isConfirmed());
}

TEST_F(BeliefTest, IsSureOfWhatTheServerHadWhenItToldMore) {
  EXPECT_TRUE(snapshot(at("e", 5)));
  EXPECT_TRUE(snapshot(at("e", 6)));
  EXPECT_FALSE(belief_.isConfirmed());
  EXPECT_FALSE(snapshot(at("e", 4)));
  EXPECT_TRUE(snapshot(at("e", 5)));
}

TEST_F(BeliefTest, IsSureOfAnEntryThatTheNextSnapshotHas) {
  confirmed(at("e", 5));
  ring(6);
  EXPECT_TRUE(snapshot(at("e", 6)));
  EXPECT_TRUE(belief_.isConfirmed());
}

TEST_F(BeliefTest, IsSureOfAnEntryThatTheNextSnapshotIsBeyond) {
  confirmed(at("e", 5));
  ring(6);
  EXPECT_TRUE(snapshot(at("e", 7)));
  EXPECT_FALSE(belief_.isConfirmed());
  EXPECT_FALSE(snapshot(at("e", 5)));
  EXPECT_TRUE(snapshot(at("e", 6)));
}

TEST_F(BeliefTest, DoesNotBelieveAnEntryThatTheSnapshotLacks) {
  confirmed(at("e", 5));
  ring(999);
  EXPECT_TRUE(snapshot(at("e", 6)));
  EXPECT_TRUE(snapshot(at("e", 7)));
}

TEST_F(BeliefTest, DoesNotBelieveAnEntryOfAnotherEpoch) {
  confirmed(at("e", 5));
  ring(6);
  EXPECT_TRUE(snapshot(at("f", 9)));
  EXPECT_TRUE(snapshot(at("f", 1)));
}

TEST_F(BeliefTest, ForgetsAnEntryWithTheNextAnswer) {
  confirmed(at("e", 5));
  ring(9);
  EXPECT_TRUE(snapshot(at("e", 6)));
  EXPECT_TRUE(snapshot(at("e", 9)));
  EXPECT_TRUE(snapshot(at("e", 7)));
}

TEST_F(BeliefTest, ServesNothingOfAServerThatWentBack) {
  confirmed(at("e", 5));
  EXPECT_FALSE(snapshot(at("e", 4)));
  EXPECT_EQ(belief_.setback(), "the server went back from 5-0 to 4-0 in epoch e");
  EXPECT_EQ(belief_.accepted(), at("e", 5));
}

TEST_F(BeliefTest, IsNotWornDownByAServerThatWentBack) {
  confirmed(at("e", 5));
  for (int time = 0; time < 5; ++time) {
    EXPECT_FALSE(snapshot(at("e", 4)));
    EXPECT_TRUE(look(at("e", 4)));
  }
}

TEST_F(BeliefTest, ServesAServerAgainThatCaughtUp) {
  confirmed(at("e", 5));
  EXPECT_FALSE(snapshot(at("e", 4)));
  EXPECT_TRUE(snapshot(at("e", 5)));
  EXPECT_TRUE(snapshot(at("e", 6)));
}

TEST_F(BeliefTest, ServesAServerThatBeganAnotherEpoch) {
  confirmed(at("e", 5));
  EXPECT_TRUE(snapshot(at("f", 1)));
  EXPECT_TRUE(look(at("f", 1)));
  EXPECT_FALSE(snapshot(at("f", 0)));
}

TEST_F(BeliefTest, ServesAServerThatLostItsEpoch) {
  confirmed(at("e", 5));
  EXPECT_TRUE(snapshot(ServerState()));
  EXPECT_EQ(belief_.accepted(), ServerState());
}

TEST_F(BeliefTest, IsNotMisledByANumberThatOneAnswerAloneTold) {
  EXPECT_TRUE(snapshot(at("e", 999)));
  EXPECT_FALSE(look(at("e", 5)));
  EXPECT_TRUE(snapshot(at("e", 5)));
}

TEST_F(BeliefTest, KnowsWhenWhatIsServedWasLastFoundToHold) {
  confirmed(at("e", 5));
  EXPECT_EQ(belief_.acceptedHeldAt(), 2.0);
  EXPECT_TRUE(look(at("e", 5)));
  EXPECT_EQ(belief_.acceptedHeldAt(), 3.0);
  EXPECT_FALSE(look(at("e", 6)));
  EXPECT_EQ(belief_.acceptedHeldAt(), 3.0);
  EXPECT_TRUE(snapshot(at("e", 6)));
  EXPECT_EQ(belief_.acceptedHeldAt(), 5.0);
  EXPECT_TRUE(look(at("e", 6)));
  EXPECT_FALSE(snapshot(at("e", 4)));
  EXPECT_TRUE(look(at("e", 4)));
  EXPECT_EQ(belief_.acceptedHeldAt(), 6.0);
}

TEST_F(BeliefTest, BearsOneRefusalToRingAndNotTwoInARow) {
  belief_.tailIs(false);
  EXPECT_TRUE(belief_.rings());
  belief_.tailIs(true);
  belief_.tailIs(false);
  EXPECT_TRUE(belief_.rings());
  belief_.tailIs(false);
  EXPECT_FALSE(belief_.rings());
  belief_.tailIs(false);
  belief_.tailIs(true);
  EXPECT_TRUE(belief_.rings());
}

// Every answer that there was, looked through from the beginning each time.
class History {
 public:
  void add(const ServerState& told, const std::optional<StreamId>& rung) {
    answers_.push_back({told, rung});
  }
  // What two answers told, in the order of the second.
  std::vector<ServerState> confirmed() const {
    std::vector<ServerState> states;
    for (std::size_t i = 1; i < answers_.size(); ++i) {
      const ServerState& before = answers_[i - 1].told;
      const auto& [after, rung] = answers_[i];
      const bool sameEpoch = after.epoch && after.epoch == before.epoch;
      if (after == before || (sameEpoch && after.lastId >= before.lastId)) states.push_back(before);
      if (sameEpoch && rung && *rung <= after.lastId) {
        states.push_back(after);
        states.back().lastId = *rung;
      }
    }
    return states;
  }
  // Whether the last answer is behind any of the same epoch since another one was confirmed.
  bool wentBack() const {
    const ServerState& present = answers_.back().told;
    const std::vector<ServerState> states = confirmed();
    const auto another = std::find_if(
        states.rbegin(), states.rend(),
        [&](const ServerState& state) { return !state.epoch || state.epoch != present.epoch; });
    return std::any_of(states.rbegin(), another,
                       [&](const ServerState& state) { return present.lastId < state.lastId; });
  }

 private:
  struct Answer {
    ServerState told;
    std::optional<StreamId> rung;
  };
  std::vector<Answer> answers_{{ServerState(), {}}};
};

class RandomBeliefTest : public BeliefTest {
 protected:
  std::uint64_t id(std::uint64_t most) { return 1 + random_.below(static_cast<unsigned>(most)); }

  support::Random random_;
};

TEST_F(RandomBeliefTest, ServesWhatNoTwoEarlierAnswersSpeakAgainst) {
  SCOPED_TRACE(random_.replay());
  for (int round = support::randomSteps(300); round > 0; --round) {
    belief_ = {};
    History history;
    for (int step = 0; step < 20; ++step) {
      const ServerState told =
          random_.below(8) == 0 ? ServerState() : at(random_.below(4) == 0 ? "f" : "e", id(5));
      std::optional<StreamId> rung;
      if (random_.below(3) == 0) rung = StreamId{id(6), 0};
      belief_.ringIs(rung);
      history.add(told, rung);
      if (random_.below(3) == 0) {
        (void)look(told);
      } else {
        ASSERT_EQ(snapshot(told), !history.wentBack()) << "step " << step;
      }
    }
  }
}

TEST_F(RandomBeliefTest, ServesAnHonestServerThoughEveryOtherAnswerIsDamaged) {
  SCOPED_TRACE(random_.replay());
  std::string epoch = "0";
  std::uint64_t lastId = 5;
  for (int step = support::randomSteps(3000); step > 0; --step) {
    if (random_.below(50) == 0) {
      epoch = std::to_string(step);
      lastId = 1;
    }
    lastId += random_.below(3);
    if (random_.below(2) == 0) {
      (void)snapshot(at(epoch, id(2 * lastId)));
    } else {
      ring(id(2 * lastId));
    }
    ASSERT_TRUE(snapshot(at(epoch, lastId))) << belief_.setback() << " at step " << step;
  }
}

}  // namespace
}  // namespace Kavra::Redis
