#include "Qel/RbTreeMap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <limits>
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
using testing::IsEmpty;

using Key = std::pair<U32, U32>;

class Row : public Qel::PtrInterface, public Qel::RbTreeMapLinks {
 public:
  explicit Row(const Key& key) : key_(key) {}
  const Key& fwkKey() const noexcept { return key_; }

 private:
  const Key key_;
};

using RowMap = Qel::RbTreeMap<Row, Key>;

template <class MapOrConst>
std::vector<Key> keysFrom(MapOrConst& map, const Key& start) {
  std::vector<Key> keys;
  for (auto it = map.startAt(start); it; it.advance()) keys.push_back(it.key());
  return keys;
}

class RbTreeMapTest : public support::LiveObjectsTest {
 protected:
  Ptr<Row> added(const Key& key) {
    auto row = make<Row>(key);
    map_.rowIs(row);
    return row;
  }
  std::vector<Key> keys() const {
    std::vector<Key> keys;
    for (auto it = map_.iteratorConst(); it; ++it) keys.push_back(it.key());
    return keys;
  }

  RowMap map_;
};

TEST_F(RbTreeMapTest, IsEmptyAtFirst) {
  EXPECT_TRUE(map_.empty());
  EXPECT_EQ(map_.members(), 0U);
  EXPECT_FALSE(map_.iterator());
  EXPECT_FALSE(map_.startAt({0, 0}));
  EXPECT_EQ(map_[Key(1, 1)], nullptr);
}

TEST_F(RbTreeMapTest, FindsARowUnderItsKeyAndKeepsItAlive) {
  Row* row = added({1, 2}).get();
  EXPECT_EQ(map_[Key(1, 2)].get(), row);
  EXPECT_EQ(map_[Key(2, 1)], nullptr);
  EXPECT_EQ(row->references(), 1U);
  EXPECT_EQ(map_.members(), 1U);
}

TEST_F(RbTreeMapTest, WalksInAscendingOrderOfUnsignedKeys) {
  constexpr U32 kMost = std::numeric_limits<U32>::max();
  for (const Key& key : {Key(2, 0), Key(0, kMost), Key(1, 9), Key(0, 0), Key(kMost, 0)}) added(key);
  EXPECT_THAT(keys(), ElementsAre(Key(0, 0), Key(0, kMost), Key(1, 9), Key(2, 0), Key(kMost, 0)));
}

TEST_F(RbTreeMapTest, StartsAtTheRowOrTheNextGreaterOneOrTheEnd) {
  added({1, 5});
  added({2, 1});
  EXPECT_THAT(keysFrom(map_, {1, 5}), ElementsAre(Key(1, 5), Key(2, 1)));
  EXPECT_THAT(keysFrom(std::as_const(map_), {2, 0}), ElementsAre(Key(2, 1)));
  EXPECT_THAT(keysFrom(map_, {9, 9}), IsEmpty());
}

TEST_F(RbTreeMapTest, FindsExactlyTheRowOfAKey) {
  added({1, 5});
  added({2, 1});
  added({2, 2});
  EXPECT_EQ(std::as_const(map_).find({2, 1}).key(), Key(2, 1));
  EXPECT_EQ(std::as_const(map_).find({2, 1}).key(), Key(2, 1)) << "the same again";
  EXPECT_EQ(std::as_const(map_).find({2, 2}).key(), Key(2, 2)) << "the next one";
  EXPECT_FALSE(std::as_const(map_).find({2, 3})) << "behind the last one";
  EXPECT_FALSE(std::as_const(map_).find({1, 6}));
  EXPECT_EQ(std::as_const(map_).find({1, 5}).key(), Key(1, 5));
}

TEST_F(RbTreeMapTest, FindsNoRowThatHasLeft) {
  const Ptr<Row> first = added({1, 1});
  const Ptr<Row> second = added({2, 2});
  map_.find({1, 1});
  map_.rowDel(Key(1, 1));
  EXPECT_FALSE(map_.find({1, 1}));
  map_.find({2, 2});
  const Ptr<Row> other = added({2, 2});
  EXPECT_EQ(map_.find({2, 2}).ptr(), other);
  map_.clear();
  EXPECT_FALSE(map_.find({2, 2}));
}

TEST_F(RbTreeMapTest, TheSameRowAgainChangesNothing) {
  const Ptr<Row> row = added({1, 1});
  const auto version = map_.version();
  map_.rowIs(row);
  EXPECT_EQ(map_.version(), version);
  EXPECT_EQ(row->references(), 2U);
}

TEST_F(RbTreeMapTest, AnotherRowOfTheSameKeyTakesThePlace) {
  const Ptr<Row> old = added({1, 1});
  added({0, 0});
  added({2, 2});
  const Ptr<Row> now = added({1, 1});
  EXPECT_EQ(map_[Key(1, 1)], now);
  EXPECT_EQ(old->references(), 1U);
  EXPECT_THAT(keys(), ElementsAre(Key(0, 0), Key(1, 1), Key(2, 2)));
}

TEST_F(RbTreeMapTest, ARowThatWasReplacedMayBeStoredAgain) {
  const Ptr<Row> old = added({1, 1});
  added({1, 1});
  map_.rowIs(old);
  EXPECT_EQ(map_[Key(1, 1)], old);
}

TEST_F(RbTreeMapTest, HandsOutTheRowItRemoves) {
  const Ptr<Row> row = added({1, 1});
  EXPECT_EQ(map_.rowDel(Key(1, 1)), row);
  EXPECT_EQ(row->references(), 1U);
  EXPECT_EQ(map_.rowDel(Key(1, 1)), nullptr);
  EXPECT_TRUE(map_.empty());
}

TEST_F(RbTreeMapTest, RemovesThroughAnIteratorOnlyWhatStandsThere) {
  const Ptr<Row> row = added({1, 1});
  RowMap::Iterator it = map_.iterator();
  RowMap::Iterator end = map_.startAt({9, 9});
  EXPECT_EQ(map_.rowDel(end), nullptr);
  EXPECT_EQ(map_.rowDel(it), row);
  EXPECT_EQ(map_.rowDel(it), nullptr);
  const Ptr<Row> other = added({1, 1});
  EXPECT_EQ(map_.rowDel(it), nullptr) << "another row has the key now";
  EXPECT_EQ(map_[Key(1, 1)], other);
}

TEST_F(RbTreeMapTest, AnIteratorKeepsItsRowAndGoesOnBehindItWhenTheRowLeaves) {
  for (U32 i = 1; i <= 4; ++i) added({i, 0});
  RowMap::Iterator it = map_.startAt({2, 0});
  map_.rowDel(Key(2, 0));
  map_.rowDel(Key(3, 0));
  EXPECT_EQ(it.key(), Key(2, 0));
  it.advance();
  EXPECT_EQ(it.key(), Key(4, 0));
}

TEST_F(RbTreeMapTest, AnIteratorVisitsRowsThatJoinAheadAndNoneThatJoinBehind) {
  added({2, 0});
  added({9, 0});
  RowMap::Iterator it = map_.iterator();
  added({1, 0});
  added({5, 0});
  it.advance();
  EXPECT_EQ(it.key(), Key(5, 0));
  it.advance();
  EXPECT_EQ(it.key(), Key(9, 0));
  it.advance();
  EXPECT_FALSE(it);
}

TEST_F(RbTreeMapTest, AnIteratorDoesNotVisitItsKeyAgainWhenTheRowWasReplaced) {
  added({1, 0});
  added({2, 0});
  RowMap::Iterator it = map_.iterator();
  added({1, 0});
  it.advance();
  EXPECT_EQ(it.key(), Key(2, 0));
}

TEST_F(RbTreeMapTest, AnIteratorAtTheEndStaysThere) {
  added({1, 0});
  RowMap::Iterator it = map_.iterator();
  it.advance();
  added({2, 0});
  it.advance();
  EXPECT_FALSE(it);
}

TEST_F(RbTreeMapTest, AnIteratorOfNoMapIsAtTheEnd) {
  RowMap::Iterator it;
  it.advance();
  EXPECT_FALSE(it);
}

TEST_F(RbTreeMapTest, ClearsWithAnIteratorStandingInIt) {
  added({1, 0});
  added({2, 0});
  RowMap::IteratorConst it = map_.iteratorConst();
  map_.clear();
  EXPECT_TRUE(map_.empty());
  EXPECT_EQ(it.key(), Key(1, 0));
  it.advance();
  EXPECT_FALSE(it);
}

TEST_F(RbTreeMapTest, RowsOutliveTheMap) {
  auto map = std::make_unique<RowMap>();
  const auto row = make<Row>(Key(1, 1));
  map->rowIs(row);
  map.reset();
  EXPECT_EQ(row->references(), 1U);
  EXPECT_EQ(row->fwkKey(), Key(1, 1));
}

TEST_F(RbTreeMapTest, ARowThatIsInAnotherMapEndsTheProcess) {
  const Ptr<Row> row = added({1, 1});
  RowMap other;
  EXPECT_DEATH(other.rowIs(row), "assertion failed: .*is_linked");
  const auto twin = make<Row>(Key(1, 1));
  other.rowIs(twin);
  EXPECT_DEATH(other.rowIs(row), "assertion failed: .*is_linked") << "in the place of another";
}

// A row that counts how often it is asked for its key.
class AskedRow : public Qel::PtrInterface, public Qel::RbTreeMapLinks {
 public:
  explicit AskedRow(U32 key) : key_(key) {}
  const U32& fwkKey() const noexcept { return ++asked, key_; }

  static inline U32 asked = 0;

 private:
  const U32 key_;
};

class LargeRbTreeMapTest : public support::LiveObjectsTest {
 protected:
  static constexpr U32 kMany = 10'000;
  static constexpr U32 kFew = 2 * 14 + 2;  // a balanced tree is twice as deep at most
  static constexpr U32 kLooksAtRest = kMany / 64 + 1;

  LargeRbTreeMapTest() {
    for (U32 key = 0; key < kMany; ++key) map_.rowIs(make<AskedRow>(key));
  }
  // How many keys of rows a look here and there takes.
  U32 keysOfALook() {
    const U32 key = ++looks_ * 4051U % kMany;
    AskedRow::asked = 0;
    const Ptr<AskedRow const> found = map_.find(key).ptr();
    const U32 asked = AskedRow::asked;
    EXPECT_EQ(found->fwkKey(), key);
    return asked;
  }
  U32 mostKeysOf(U32 looks) {
    U32 most = 0;
    for (U32 i = 0; i < looks; ++i) most = std::max(most, keysOfALook());
    return most;
  }

  Qel::RbTreeMap<AskedRow, U32> map_;

 private:
  U32 looks_ = 0;
};

TEST_F(LargeRbTreeMapTest, FindsRowsWithoutAskingAnyOnceItHasRested) {
  EXPECT_LE(mostKeysOf(kLooksAtRest - 1), kFew);
  keysOfALook();
  EXPECT_EQ(mostKeysOf(kMany), 0U);
  EXPECT_FALSE(map_.find(kMany));
}

TEST_F(LargeRbTreeMapTest, AsksFewRowsForALookWhileItChanges) {
  U32 most = 0;
  for (U32 i = 0; i < kMany; ++i) {
    if (i % (kLooksAtRest / 2) == 0) map_.rowIs(make<AskedRow>(i));
    most = std::max(most, keysOfALook());
  }
  EXPECT_LE(most, kFew);
}

TEST_F(LargeRbTreeMapTest, FindsWhatIsThereAfterARest) {
  mostKeysOf(kLooksAtRest);
  EXPECT_EQ(map_.rowDel(5)->fwkKey(), 5U);
  EXPECT_FALSE(map_.find(5));
  map_.clear();
  EXPECT_FALSE(map_.find(6));
}

TEST_F(LargeRbTreeMapTest, WalksOnFromARowThatWasFoundAtRest) {
  mostKeysOf(kLooksAtRest);
  auto it = std::as_const(map_).find(kMany - 2);
  it.advance();
  EXPECT_EQ(it.key(), kMany - 1);
  it.advance();
  EXPECT_FALSE(it);
  it = std::as_const(map_).find(kMany - 1);
  it.advance();
  EXPECT_FALSE(it);
  it = std::as_const(map_).find(3);
  map_.rowDel(4);
  it.advance();
  EXPECT_EQ(it.key(), 5U);
}

// The map beside a std::map of what it must hold, with iterators that stand while both change.
class RbTreeMapAgainstStdMap : public RbTreeMapTest {
 protected:
  // A standing iterator, and the key of the row that it must be at; none at the end.
  struct Standing {
    RowMap::IteratorConst it;
    std::optional<Key> key;
  };

  void step() {
    if (random_.below(200) == 0) return rest();
    switch (random_.below(12)) {
      case 0:
      case 1:
      case 2:
        return add();
      case 3:
      case 4:
        return remove();
      case 5:
        return removeAtIterator();
      case 6:
        return start();
      case 7:
      case 8:
        return find();
      default:
        return advance();
    }
  }
  void expectEqual() const {
    std::vector<Key> wanted;
    for (const auto& [key, row] : model_) wanted.push_back(key);
    ASSERT_EQ(keys(), wanted);
    ASSERT_EQ(map_.members(), model_.size());
  }

  support::Random random_;

 private:
  Key someKey() { return {random_.below(6), random_.below(30)}; }
  Standing& someStanding() { return standing_[random_.below(kStanding)]; }

  void add() {
    const Key key = someKey();
    model_[key] = added(key);
  }
  void remove() {
    const Key key = someKey();
    const auto found = model_.find(key);
    const Ptr<Row> wanted = found == model_.end() ? Ptr<Row>() : found->second;
    ASSERT_EQ(map_.rowDel(key), wanted);
    model_.erase(key);
  }
  void removeAtIterator() {
    const RowMap::Iterator it = map_.startAt(someKey());
    if (!it) return;
    const Ptr<Row> wanted = model_.at(it.key());
    ASSERT_EQ(map_.rowDel(it), wanted);
    model_.erase(it.key());
  }
  void start() {
    const Key key = someKey();
    Standing& standing = someStanding();
    standing.it = std::as_const(map_).startAt(key);
    standing.key = keyAt(model_.lower_bound(key));
    expectAt(standing);
  }
  // One that was asked for already, or the one behind it, or any.
  void find() {
    Key key = someKey();
    if (random_.below(3) > 0) key = {found_.first, found_.second + random_.below(2)};
    found_ = key;
    const auto wanted = model_.find(key);
    const RowMap::IteratorConst it = std::as_const(map_).find(key);
    ASSERT_EQ(it.ptr(), wanted == model_.end() ? Ptr<Row>() : wanted->second);
    if (it && random_.below(2) == 0) someStanding() = {it, key};
  }
  // Long enough for the map to make itself quicker.
  void rest() {
    for (int i = 0; i < 30; ++i) {
      find();
      advance();
    }
  }
  void advance() {
    Standing& standing = someStanding();
    standing.it.advance();
    if (standing.key) standing.key = keyAt(model_.upper_bound(*standing.key));
    expectAt(standing);
  }
  void expectAt(const Standing& standing) const {
    ASSERT_EQ(static_cast<bool>(standing.it), standing.key.has_value());
    if (!standing.key) return;
    ASSERT_EQ(standing.it.key(), *standing.key);
    ASSERT_EQ(standing.it.ptr(), model_.at(*standing.key));
  }
  std::optional<Key> keyAt(std::map<Key, Ptr<Row>>::const_iterator place) const {
    return place == model_.end() ? std::optional<Key>() : place->first;
  }

  static constexpr unsigned kStanding = 8;
  std::map<Key, Ptr<Row>> model_;
  Standing standing_[kStanding];
  Key found_;
};

TEST_F(RbTreeMapAgainstStdMap, HoldsTheSameUnderRandomOperationsAndStandingIterators) {
  std::cout << random_.replay() << std::endl;  // ahead, lest a crash keep it back
  const int steps = support::randomSteps(1'000'000);
  for (int i = 0; i < steps && !HasFatalFailure(); ++i) {
    step();
    if (i % 64 == 0) expectEqual();
  }
  expectEqual();
}

}  // namespace
