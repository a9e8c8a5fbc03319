#include "Kavra/AddressLookup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>

#include "Kavra/Store.h"
#include "Qel/PollEventLoop.h"
#include "platform/Kavra/RunUntil.h"
#include "support/OpenDescriptors.h"
#include "support/ProblemOf.h"

namespace Kavra {
namespace {

using Addresses = AddressLookup::Addresses;

// Who is asked answers with as many addresses as questions were put, once it is allowed to.
class AddressLookupTest : public testing::Test {
 protected:
  AddressLookup::Resolve slow() {
    return [wait = allowed_.get_future().share(), questions = questions_] {
      const int number = ++*questions;
      wait.wait();
      return Addresses(static_cast<std::size_t>(number));
    };
  }
  bool until(const std::function<bool()>& condition) {
    return kavratest::runUntil(loop_, condition);
  }
  bool isAnswered(int descriptor) {
    bool answered = false;
    const auto watch = loop_.readableIs(descriptor, [&] { answered = true; });
    return until([&] { return answered; });
  }

  Qel::PollEventLoop loop_;
  std::promise<void> allowed_;
  // A thread may outlive the test.
  const std::shared_ptr<std::atomic<int>> questions_ = std::make_shared<std::atomic<int>>(0);
};

TEST_F(AddressLookupTest, TellsTheLoopWhenThereIsAnAnswer) {
  AddressLookup lookup([] { return Addresses(2); });
  ASSERT_TRUE(isAnswered(lookup.ask()));
  EXPECT_EQ(lookup.take().size(), 2U);
}

TEST_F(AddressLookupTest, TellsWhyThereAreNone) {
  AddressLookup lookup([]() -> Addresses { throw StoreException("no such name"); });
  ASSERT_TRUE(isAnswered(lookup.ask()));
  EXPECT_EQ(support::problemOf<StoreException>([&] { lookup.take(); }), "no such name");
}

TEST_F(AddressLookupTest, LeavesTheLoopFreeUntilThereIsAnAnswer) {
  AddressLookup lookup(slow());
  bool answered = false;
  bool passed = false;
  const auto watch = loop_.readableIs(lookup.ask(), [&] { answered = true; });
  const auto timer = loop_.timerIs(0.01, [&] { passed = true; });
  EXPECT_TRUE(until([&] { return passed; }));
  EXPECT_FALSE(answered);
  allowed_.set_value();
  EXPECT_TRUE(until([&] { return answered; }));
}

TEST_F(AddressLookupTest, PutsOneQuestionAtATime) {
  AddressLookup lookup(slow());
  const int descriptor = lookup.ask();
  EXPECT_FALSE(lookup.wait(0.001));
  EXPECT_EQ(lookup.ask(), descriptor);
  allowed_.set_value();
  ASSERT_TRUE(isAnswered(descriptor));
  // An answer that nobody took is one, however late.
  const auto addresses = lookup.wait(0.0);
  ASSERT_TRUE(addresses);
  EXPECT_EQ(addresses->size(), 1U);
  EXPECT_EQ(*questions_, 1);
}

TEST_F(AddressLookupTest, AsksAnewOnceTheAnswerWasTaken) {
  AddressLookup lookup(slow());
  allowed_.set_value();
  lookup.ask();
  EXPECT_EQ(lookup.take().size(), 1U);
  lookup.ask();
  EXPECT_EQ(lookup.take().size(), 2U);
}

TEST_F(AddressLookupTest, MayBeLetGoWhileItIsUnderWay) {
  const std::ptrdiff_t before = support::openDescriptors();
  {
    AddressLookup lookup(slow());
    lookup.ask();
    ASSERT_TRUE(until([this] { return *questions_ == 1; }));
  }
  allowed_.set_value();
  // Fewer, where the thread of an earlier look-up ended only now.
  EXPECT_TRUE(until([&] { return support::openDescriptors() <= before; }));
}

}  // namespace
}  // namespace Kavra
