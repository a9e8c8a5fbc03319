#include "Kavra/AddressLookup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <string>

#include "Kavra/Store.h"
#include "Qel/PollEventLoop.h"
#include "platform/Kavra/RunUntil.h"
#include "support/LiveObjects.h"
#include "support/OpenDescriptors.h"

namespace Kavra {
namespace {

using Addresses = AddressLookup::Addresses;

class AddressLookupTest : public support::LiveObjectsTest {
 protected:
  Qel::Ptr<AddressLookup> lookUp(const AddressLookup::Resolve& resolve) {
    return Qel::make<AddressLookup>(loop_, resolve, [this](std::future<Addresses>& answer) {
      try {
        log_ = std::to_string(answer.get().size()) + " addresses";
      } catch (const StoreException& error) {
        log_ = error.what();
      }
      ++calls_;
    });
  }
  bool until(const std::function<bool()>& condition) {
    return kavratest::runUntil(loop_, condition);
  }

  Qel::PollEventLoop loop_;
  std::string log_;
  int calls_ = 0;
};

TEST_F(AddressLookupTest, TellsTheAddressesFromTheLoop) {
  const auto lookup = lookUp([] { return Addresses(2); });
  EXPECT_EQ(calls_, 0);
  ASSERT_TRUE(until([this] { return calls_ > 0; }));
  EXPECT_EQ(log_, "2 addresses");
}

TEST_F(AddressLookupTest, TellsWhyThereAreNone) {
  const auto lookup = lookUp([]() -> Addresses { throw StoreException("no such name"); });
  ASSERT_TRUE(until([this] { return calls_ > 0; }));
  EXPECT_EQ(log_, "no such name");
}

TEST_F(AddressLookupTest, LeavesTheLoopFreeUntilThereIsAnAnswer) {
  std::promise<void> answer;
  const auto lookup = lookUp([wait = answer.get_future().share()] {
    wait.wait();
    return Addresses(1);
  });
  bool passed = false;
  const auto timer = loop_.timerIs(0.01, [&] { passed = true; });
  EXPECT_TRUE(until([&] { return passed; }));
  EXPECT_EQ(calls_, 0);
  answer.set_value();
  EXPECT_TRUE(until([this] { return calls_ > 0; }));
}

TEST_F(AddressLookupTest, TellsNobodyWhoLetItGo) {
  const std::ptrdiff_t before = support::openDescriptors();
  std::promise<void> answer;
  auto lookup = lookUp([wait = answer.get_future().share()] {
    wait.wait();
    return Addresses(1);
  });
  lookup = nullptr;
  answer.set_value();
  // Fewer, where the thread of an earlier look-up ended only now.
  EXPECT_TRUE(until([&] { return support::openDescriptors() <= before; }));
  EXPECT_EQ(calls_, 0);
}

TEST_F(AddressLookupTest, MayBeLetGoByWhomItTells) {
  Qel::Ptr<AddressLookup> lookup;
  lookup = Qel::make<AddressLookup>(
      loop_, [] { return Addresses(1); },
      [&](std::future<Addresses>& answer) {
        lookup = nullptr;
        calls_ += static_cast<int>(answer.get().size());
      });
  EXPECT_TRUE(until([this] { return calls_ == 1; }));
}

}  // namespace
}  // namespace Kavra
