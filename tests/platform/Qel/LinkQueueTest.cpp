#include "Qel/LinkQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Qel/Types.h"
#include "support/LiveObjects.h"
#include "support/Random.h"

namespace {

using Qel::Ptr;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class Element : public Qel::LinkQueueElement<U32, std::string> {
 public:
  using LinkQueueElement::LinkQueueElement;
};

using Queue = Qel::LinkQueue<Element, U32, std::string>;
using Entry = std::pair<U32, std::string>;

class LinkQueueTest : public support::LiveObjectsTest {
 protected:
  std::vector<Entry> entries() const {
    std::vector<Entry> entries;
    for (auto it = queue_.iteratorConst(); it; ++it) entries.emplace_back(it.key(), it.value());
    return entries;
  }

  Queue queue_;
};

TEST_F(LinkQueueTest, IsEmptyAtFirst) {
  EXPECT_TRUE(queue_.empty());
  EXPECT_EQ(queue_.first(), nullptr);
  EXPECT_EQ(queue_.last(), nullptr);
  EXPECT_EQ(queue_[0], nullptr);
  EXPECT_EQ(queue_.pop(), nullptr);
  EXPECT_EQ(queue_.del(0), nullptr);
  EXPECT_FALSE(queue_.iteratorConst());
}

TEST_F(LinkQueueTest, KeysCountFromZero) {
  EXPECT_EQ(queue_.push("a"), 0U);
  EXPECT_EQ(queue_.push("b"), 1U);
  EXPECT_EQ(queue_.push("c"), 2U);
  EXPECT_THAT(entries(), ElementsAre(Pair(0U, "a"), Pair(1U, "b"), Pair(2U, "c")));
  EXPECT_EQ(queue_.members(), 3U);
}

TEST_F(LinkQueueTest, FindsFirstLastAndThoseBetween) {
  for (const char* text : {"a", "b", "c", "d"}) queue_.push(text);
  EXPECT_EQ(queue_[0]->value(), "a");
  EXPECT_EQ(queue_[3]->value(), "d");
  EXPECT_EQ(queue_[2]->value(), "c");
  EXPECT_EQ(queue_[4], nullptr);
  EXPECT_EQ(queue_[4294967295U], nullptr);
  EXPECT_EQ(*queue_.value(2), "c");
  EXPECT_EQ(*queue_.value(3), "d");
  EXPECT_EQ(queue_.value(4), nullptr);
  queue_.del(3);
  EXPECT_EQ(queue_.value(3), nullptr);
  EXPECT_EQ(queue_.first(), queue_[0]);
  EXPECT_EQ(queue_.last(), queue_[2]);
}

TEST_F(LinkQueueTest, LeadsFromEachElementToItsSuccessor) {
  queue_.push("a");
  queue_.push("b");
  EXPECT_EQ(queue_.successor(*queue_.first()), queue_.last());
  EXPECT_EQ(queue_.successor(*queue_.last()), nullptr);
}

TEST_F(LinkQueueTest, AKeyThatLeftTheMiddleIsNotGivenAgain) {
  for (const char* text : {"a", "b", "c"}) queue_.push(text);
  EXPECT_EQ(queue_.del(1)->value(), "b");
  EXPECT_EQ(queue_[1], nullptr);
  EXPECT_EQ(queue_.push("d"), 3U);
}

TEST_F(LinkQueueTest, KeysGoOnBehindTheLastElementAndBeginAgainOnceEmpty) {
  queue_.push("a");
  queue_.push("b");
  queue_.del(1);
  EXPECT_EQ(queue_.push("c"), 1U);
  queue_.pop();
  EXPECT_EQ(queue_.push("d"), 2U);
  queue_.clear();
  EXPECT_EQ(queue_.push("e"), 0U);
}

TEST_F(LinkQueueTest, ARemovedElementLivesAsLongAsItIsHeld) {
  queue_.push("a");
  const Ptr<Element> element = queue_.pop();
  EXPECT_EQ(element->references(), 1U);
  EXPECT_EQ(element->value(), "a");
  EXPECT_TRUE(queue_.empty());
}

TEST_F(LinkQueueTest, ElementsOutliveTheQueue) {
  auto queue = std::make_unique<Queue>();
  queue->push("a");
  const Ptr<Element const> element = queue->first();
  queue.reset();
  EXPECT_EQ(element->value(), "a");
  EXPECT_EQ(element->references(), 1U);
}

TEST_F(LinkQueueTest, AnIteratorGoesOnBehindAnElementThatLeft) {
  for (const char* text : {"a", "b", "c", "d"}) queue_.push(text);
  auto it = queue_.iteratorConst();
  ++it;
  queue_.del(1);
  queue_.del(2);
  EXPECT_EQ(it.value(), "b");
  ++it;
  EXPECT_EQ(it.value(), "d");
}

TEST_F(LinkQueueTest, AnIteratorMeetsWhatIsPushedMeanwhile) {
  queue_.push("a");
  auto it = queue_.iteratorConst();
  queue_.push("b");
  ++it;
  EXPECT_EQ(it.value(), "b");
  ++it;
  queue_.push("c");
  ++it;
  EXPECT_FALSE(it);
}

TEST_F(LinkQueueTest, ClearsWithAnIteratorStandingInIt) {
  queue_.push("a");
  queue_.push("b");
  auto it = queue_.iteratorConst();
  queue_.clear();
  EXPECT_EQ(it.value(), "a");
  ++it;
  EXPECT_FALSE(it);
  EXPECT_THAT(entries(), IsEmpty());
}

using Digit = std::uint8_t;
class DigitElement : public Qel::LinkQueueElement<Digit, int> {
 public:
  using LinkQueueElement::LinkQueueElement;
};

TEST_F(LinkQueueTest, RunningOutOfKeysEndsTheProcess) {
  Qel::LinkQueue<DigitElement, Digit, int> queue;
  for (int i = 0; i < 256; ++i) EXPECT_EQ(queue.push(i), i);
  EXPECT_DEATH(queue.push(256), "assertion failed: empty\\(\\) \\|\\| key > lastKey\\(\\)");
}

// A key that counts how often it is compared.
class CountedKey {
 public:
  CountedKey() = default;
  explicit CountedKey(U32 value) : value_(value) {}
  friend CountedKey operator+(CountedKey a, int b) {
    return CountedKey(a.value_ + static_cast<U32>(b));
  }
  friend bool operator<(CountedKey a, CountedKey b) { return ++comparisons, a.value_ < b.value_; }
  friend bool operator>(CountedKey a, CountedKey b) { return b < a; }
  friend bool operator==(CountedKey a, CountedKey b) { return ++comparisons, a.value_ == b.value_; }

  static inline int comparisons = 0;

 private:
  U32 value_ = 0;
};

class CountedElement : public Qel::LinkQueueElement<CountedKey, int> {
 public:
  using LinkQueueElement::LinkQueueElement;
};

class LargeLinkQueueTest : public support::LiveObjectsTest {
 protected:
  static constexpr U32 kMany = 65536;
  static constexpr int kFewComparisons = 2 * 17 + 2;  // a balanced tree is twice as deep at most
  static constexpr int kFewOfALook = 2 * kFewComparisons;  // which asks for equality as well

  LargeLinkQueueTest() {
    for (U32 i = 0; i < kMany; ++i) queue_.push(0);
  }
  // The most that any of the calls compares keys.
  template <class Call>
  static int mostComparisons(U32 step, const Call& call) {
    int most = 0;
    for (U32 key = 0; key < kMany; key += step) {
      CountedKey::comparisons = 0;
      call(CountedKey(key));
      most = std::max(most, CountedKey::comparisons);
    }
    return most;
  }
  int mostOfALook() const {
    return mostComparisons(1, [this](CountedKey key) { queue_.value(key); });
  }

  Qel::LinkQueue<CountedElement, CountedKey, int> queue_;
};

TEST_F(LargeLinkQueueTest, FindsAnyElementInFewComparisons) {
  EXPECT_LE(mostOfALook(), kFewOfALook);
}

TEST_F(LargeLinkQueueTest, TakesAnyElementOutInFewComparisonsAndFindsTheOthers) {
  EXPECT_LE(mostComparisons(3, [this](CountedKey key) { queue_.del(key); }), kFewComparisons);
  EXPECT_LE(mostOfALook(), kFewOfALook);
}

TEST_F(LargeLinkQueueTest, AnIteratorFindsItsPlaceAgainInFewComparisons) {
  auto it = queue_.iteratorConst();
  for (U32 i = 0; i < kMany / 2; ++i) ++it;
  queue_.pop();
  CountedKey::comparisons = 0;
  ++it;
  EXPECT_TRUE(it.key() == CountedKey(kMany / 2 + 1));
  EXPECT_LE(CountedKey::comparisons, kFewComparisons + 1);
}

// The queue beside a std::deque of what it must hold, with iterators that stand while both change.
class LinkQueueAgainstStdDeque : public LinkQueueTest {
 protected:
  struct Standing {
    explicit Standing(const Queue& queue) : it(queue.iteratorConst()) {}
    Queue::IteratorConst it;
    std::optional<Entry> entry;  // that it stands at; none at the end
  };

  void step() {
    switch (random_.below(14)) {
      case 0:
      case 1:
      case 2:
        return push();
      case 3:
        return pop();
      case 4:
      case 5:
        return remove();
      case 6:
        return start();
      case 7:
        if (random_.below(100) == 0) clear();
        return;
      case 8:
      case 9:
        return look();
      default:
        return advance();
    }
  }
  void expectEqual() const {
    ASSERT_EQ(entries(), std::vector<Entry>(model_.begin(), model_.end()));
    ASSERT_EQ(queue_.members(), model_.size());
  }

  support::Random random_;

 private:
  void push() {
    const U32 key = model_.empty() ? 0 : model_.back().first + 1;
    const std::string text = std::to_string(random_.below(1000));
    ASSERT_EQ(queue_.push(text), key);
    model_.emplace_back(key, text);
  }
  void pop() {
    const Ptr<Element> popped = queue_.pop();
    ASSERT_EQ(static_cast<bool>(popped), !model_.empty());
    if (!popped) return;
    ASSERT_EQ(Entry(popped->key(), popped->value()), model_.front());
    model_.pop_front();
  }
  void remove() {
    const U32 key = someKey();
    const auto found = find(key);
    ASSERT_EQ(static_cast<bool>(queue_[key]), found != model_.end());
    const Ptr<Element> removed = queue_.del(key);
    ASSERT_EQ(static_cast<bool>(removed), found != model_.end());
    if (!removed) return;
    ASSERT_EQ(Entry(removed->key(), removed->value()), *found);
    model_.erase(found);
  }
  void clear() {
    queue_.clear();
    model_.clear();
  }
  // At one that was looked at already, or the one behind it, or any.
  void look() {
    looked_ = random_.below(3) > 0 ? looked_ + random_.below(2) : someKey();
    const std::string* const value = std::as_const(queue_).value(looked_);
    const auto wanted = find(looked_);
    ASSERT_EQ(value != nullptr, wanted != model_.end());
    if (value == nullptr) return;
    ASSERT_EQ(*value, wanted->second);
  }
  void start() {
    Standing& standing = someStanding();
    standing = Standing(queue_);
    standing.entry = model_.empty() ? std::optional<Entry>() : model_.front();
    expectAt(standing);
  }
  void advance() {
    Standing& standing = someStanding();
    standing.it.advance();
    if (standing.entry) standing.entry = entryAfter(standing.entry->first);
    expectAt(standing);
  }

  Standing& someStanding() { return standing_[random_.below(4)]; }
  U32 someKey() {
    return model_.empty() ? random_.below(9) : model_.front().first + random_.below(20);
  }
  std::deque<Entry>::iterator find(U32 key) {
    return std::find_if(model_.begin(), model_.end(),
                        [key](const Entry& entry) { return entry.first == key; });
  }
  std::optional<Entry> entryAfter(U32 key) const {
    for (const Entry& entry : model_) {
      if (entry.first > key) return entry;
    }
    return std::nullopt;
  }
  void expectAt(const Standing& standing) const {
    ASSERT_EQ(static_cast<bool>(standing.it), standing.entry.has_value());
    if (!standing.entry) return;
    ASSERT_EQ(Entry(standing.it.key(), standing.it.value()), *standing.entry);
  }

  std::deque<Entry> model_;
  U32 looked_ = 0;
  Standing standing_[4] = {Standing(queue_), Standing(queue_), Standing(queue_), Standing(queue_)};
};

TEST_F(LinkQueueAgainstStdDeque, HoldsTheSameUnderRandomOperationsAndStandingIterators) {
  std::cout << random_.replay() << std::endl;  // ahead, lest a crash keep it back
  const int steps = support::randomSteps(1'000'000);
  for (int i = 0; i < steps && !HasFatalFailure(); ++i) {
    step();
    if (i % 64 == 0) expectEqual();
  }
  expectEqual();
}

}  // namespace
