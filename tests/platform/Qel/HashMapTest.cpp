#include "Qel/HashMap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "Qel/Types.h"
#include "support/LiveObjects.h"
#include "support/Random.h"

namespace {

using Qel::make;
using Qel::Ptr;
using testing::ElementsAre;

class Value : public Qel::PtrInterface {};

using ValueMap = Qel::HashMap<Value, U32>;

class HashMapTest : public support::LiveObjectsTest {
 protected:
  Ptr<Value> added(U32 key) {
    auto value = make<Value>();
    map_.valueIs(key, value);
    return value;
  }
  std::vector<U32> keys() const {
    std::vector<U32> keys;
    for (auto it = map_.iteratorConst(); it; ++it) keys.push_back(it.key());
    return keys;
  }

  ValueMap map_;
};

TEST_F(HashMapTest, IsEmptyAtFirst) {
  EXPECT_TRUE(map_.empty());
  EXPECT_FALSE(map_.iteratorConst());
  EXPECT_EQ(map_[0], nullptr);
  EXPECT_EQ(map_.valueDel(0), nullptr);
}

TEST_F(HashMapTest, FindsAValueUnderItsKeyAndKeepsItAlive) {
  Value* value = added(7).get();
  EXPECT_EQ(map_[7].get(), value);
  EXPECT_EQ(map_[8], nullptr);
  EXPECT_EQ(value->references(), 1U);
  EXPECT_EQ(map_.members(), 1U);
}

TEST_F(HashMapTest, HandsOutTheValueItRemoves) {
  const Ptr<Value> value = added(7);
  EXPECT_EQ(map_.valueDel(7), value);
  EXPECT_EQ(value->references(), 1U);
  EXPECT_TRUE(map_.empty());
}

TEST_F(HashMapTest, WalksInTheOrderOfInsertion) {
  for (const U32 key : {9U, 0U, 4294967295U, 5U}) added(key);
  EXPECT_THAT(keys(), ElementsAre(9U, 0U, 4294967295U, 5U));
}

TEST_F(HashMapTest, AWalkMayRemoveEverythingItMeets) {
  for (U32 key = 0; key < 5; ++key) added(key);
  std::vector<U32> met;
  for (auto it = map_.iteratorConst(); it; it.advance()) {
    met.push_back(it.key());
    map_.valueDel(it.key());
  }
  EXPECT_THAT(met, ElementsAre(0U, 1U, 2U, 3U, 4U));
  EXPECT_TRUE(map_.empty());
}

TEST_F(HashMapTest, AnIteratorKeepsItsValueAndSkipsWhatLeft) {
  added(1);
  added(2);
  added(3);
  auto it = map_.iteratorConst();
  map_.valueDel(1);
  map_.valueDel(2);
  EXPECT_EQ(it.key(), 1U);
  EXPECT_NE(it.ptr(), nullptr);
  it.advance();
  EXPECT_EQ(it.key(), 3U);
  it.advance();
  EXPECT_FALSE(it);
  it.advance();
  EXPECT_FALSE(it);
}

TEST_F(HashMapTest, AWalkMeetsAtItsEndWhatJoinsMeanwhile) {
  added(1);
  added(2);
  auto it = map_.iteratorConst();
  added(0);
  map_.valueDel(2);
  added(2);
  it.advance();
  EXPECT_EQ(it.key(), 0U);
  it.advance();
  EXPECT_EQ(it.key(), 2U);
  it.advance();
  EXPECT_FALSE(it);
}

TEST_F(HashMapTest, AKeyThatIsTakenEndsTheProcess) {
  added(7);
  EXPECT_DEATH(map_.valueIs(7, make<Value>()), "assertion failed: inserted");
}

TEST_F(HashMapTest, ANullValueEndsTheProcess) {
  EXPECT_DEATH(map_.valueIs(7, nullptr), "assertion failed: inserted && value");
}

// The map beside two std::maps of what it must hold: by key, and by the number of the insertion.
class HashMapAgainstStdMap : public HashMapTest {
 protected:
  struct Standing {
    explicit Standing(const ValueMap& map) : it(map.iteratorConst()) {}
    ValueMap::IteratorConst it;
    std::optional<unsigned> number;  // of the insertion that it stands at; none at the end
  };

  void step() {
    switch (random_.below(8)) {
      case 0:
      case 1:
      case 2:
        return addOrRemove();
      case 3:
        return start();
      default:
        return advance();
    }
  }
  void expectEqual() const {
    std::vector<U32> wanted;
    for (const auto& [number, key] : keyOfNumber_) wanted.push_back(key);
    ASSERT_EQ(keys(), wanted);
    ASSERT_EQ(map_.members(), model_.size());
  }

  support::Random random_;

 private:
  struct Held {
    unsigned number;
    Ptr<Value> value;
  };

  void addOrRemove() {
    const U32 key = random_.below(50);
    const auto found = model_.find(key);
    if (found == model_.end()) {
      ASSERT_EQ(map_[key], nullptr);
      ASSERT_EQ(map_.valueDel(key), nullptr);
      model_[key] = {next_, added(key)};
      keyOfNumber_[next_++] = key;
      return;
    }
    ASSERT_EQ(map_[key], found->second.value);
    if (random_.below(2) == 0) return;
    ASSERT_EQ(map_.valueDel(key), found->second.value);
    keyOfNumber_.erase(found->second.number);
    model_.erase(found);
  }
  void start() {
    Standing& standing = someStanding();
    standing = Standing(map_);
    standing.number = numberFrom(0);
    expectAt(standing);
  }
  void advance() {
    Standing& standing = someStanding();
    standing.it.advance();
    if (standing.number) standing.number = numberFrom(*standing.number + 1);
    expectAt(standing);
  }
  Standing& someStanding() { return standing_[random_.below(4)]; }
  std::optional<unsigned> numberFrom(unsigned least) const {
    const auto found = keyOfNumber_.lower_bound(least);
    return found == keyOfNumber_.end() ? std::optional<unsigned>() : found->first;
  }
  void expectAt(const Standing& standing) const {
    ASSERT_EQ(static_cast<bool>(standing.it), standing.number.has_value());
    if (!standing.number) return;
    const U32 key = keyOfNumber_.at(*standing.number);
    ASSERT_EQ(standing.it.key(), key);
    ASSERT_EQ(standing.it.ptr(), model_.at(key).value);
  }

  unsigned next_ = 0;
  std::map<U32, Held> model_;
  std::map<unsigned, U32> keyOfNumber_;
  Standing standing_[4] = {Standing(map_), Standing(map_), Standing(map_), Standing(map_)};
};

TEST_F(HashMapAgainstStdMap, HoldsTheSameUnderRandomOperationsAndStandingIterators) {
  std::cout << random_.replay() << std::endl;  // ahead, lest a crash keep it back
  const int steps = support::randomSteps(1'000'000);
  for (int i = 0; i < steps && !HasFatalFailure(); ++i) {
    step();
    if (i % 64 == 0) expectEqual();
  }
  expectEqual();
}

}  // namespace
