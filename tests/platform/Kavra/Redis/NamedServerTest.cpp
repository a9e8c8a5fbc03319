// Servers whose host has a name, which somebody has to look up.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>

#include <chrono>
#include <string>

#include "Kavra/AddressLookup.h"
#include "Kavra/Redis/Client.h"
#include "Kavra/Redis/Feed.h"
#include "Kavra/Store.h"
#include "platform/Kavra/HastyEventLoop.h"
#include "platform/Kavra/Redis/FollowingTest.h"
#include "platform/Kavra/Redis/NameService.h"
#include "platform/Kavra/Redis/ServerProcess.h"
#include "support/ProblemOf.h"

namespace Kavra::Redis {
namespace {

using kavratest::kUnanswered;
using kavratest::ServerProcess;
using kavratest::UnansweredName;
using testing::ElementsAre;
using testing::HasSubstr;

class NamedServerTest : public kavratest::FollowingTest {
 protected:
  Qel::Ptr<Feed> feedOfHost(const std::string& host, Qel::EventLoop& loop) {
    return Qel::make<Feed>(ConnectionOptions{Address::ofHost(host), {}}, loop, clock_);
  }
};

TEST_F(NamedServerTest, IsFoundByTheNameOfItsHost) {
  if (::gethostbyname("localhost") == nullptr) GTEST_SKIP() << "this machine does not know itself";
  const std::string port = kavratest::freePort();
  const ServerProcess server({"--port", port, "--bind", "127.0.0.1"});
  const auto named = feedOfHost("localhost:" + port, loop_);
  const auto follow = followerOf(named);
  EXPECT_TRUE(until([&] { return named->status().reachable; }));
}

TEST_F(NamedServerTest, MayHaveNoAddress) {
  const auto lost = feedOfHost("no..name", loop_);
  const auto follow = followerOf(lost);
  ASSERT_TRUE(until([&] { return !log_.lines().empty(); }));
  EXPECT_THAT(log_.lines().front(), HasSubstr("not reached: no address for 'no..name'"));
}

// With an agent whose five seconds are a quarter of one.
class UnansweredNameTest : public NamedServerTest {
 protected:
  static constexpr double kHaste = 20.0;

  UnansweredNameTest() { log_.levelIs("Kavra", 1); }
  bool lost(std::size_t times) {
    return until([&] { return log_.lines().size() >= times; });
  }
  std::string lossAtLevel(int level) const {
    return "Kavra " + std::to_string(level) + ": redis://" + host_ +
           ": not reached: no address for '" + kUnanswered + "' within 5 s; nothing to serve yet";
  }

  const std::string port_ = kavratest::freePort();
  const std::string host_ = kUnanswered + (":" + port_);
  UnansweredName name_;
  kavratest::HastyEventLoop hasty_{loop_, kHaste};
  Qel::Ptr<Feed> feed_ = feedOfHost(host_, hasty_);
};

TEST_F(UnansweredNameTest, IsALossLikeAnyOtherAndIsAskedForAgain) {
  const auto follow = followerOf(feed_);
  ASSERT_TRUE(lost(3));
  EXPECT_THAT(log_.lines(), ElementsAre(lossAtLevel(0), lossAtLevel(1), lossAtLevel(1)));
  EXPECT_FALSE(feed_->status().reachable);
  EXPECT_THAT(feed_->status().problem.stdString(), HasSubstr("within 5 s"));
}

TEST_F(UnansweredNameTest, KeepsOneThreadWaitingHoweverOftenItIsAskedFor) {
  for (std::size_t times = 1; times <= 3; ++times) {
    const auto follow = followerOf(feed_);
    ASSERT_TRUE(lost(2 * times));
  }
  EXPECT_EQ(name_.questions(), 1);
}

TEST_F(UnansweredNameTest, IsTakenWhenItIsAnsweredLate) {
  const ServerProcess server({"--port", port_, "--bind", "127.0.0.1"});
  const auto follow = followerOf(feed_);
  ASSERT_TRUE(lost(2));
  hasty_.factorIs(1.0);
  name_.answer();
  EXPECT_TRUE(until([&] { return feed_->status().reachable; }));
  EXPECT_EQ(name_.questions(), 1);
}

TEST_F(UnansweredNameTest, MayBeAnsweredWhenNobodyFollowsAnyMore) {
  auto follow = followerOf(feed_);
  ASSERT_TRUE(lost(1));
  follow = nullptr;
  ASSERT_TRUE(until([&] { return feed_->status().problem == "nobody follows it"; }));
  feed_ = nullptr;
  name_.answer();
  EXPECT_TRUE(until([&] { return name_.waiting() == 0; }));
}

TEST(UnansweredNameOfAClientTest, CostsNoMoreThanFiveSecondsAndOneThread) {
  UnansweredName name;
  const std::string port = kavratest::freePort();
  const ConnectionOptions options{Address::ofHost(kUnanswered + (":" + port)), {}};
  const auto begin = std::chrono::steady_clock::now();
  const auto problem = [&] {
    return support::problemOf<StoreException>([&] { const Client client(options); });
  };
  EXPECT_EQ(problem(),
            options.address.text() + ": no address for '" + kUnanswered + "' within 5 s");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(9));
  const ServerProcess server({"--port", port, "--bind", "127.0.0.1"});
  name.answer();
  EXPECT_EQ(problem(), "nothing");
  EXPECT_EQ(name.questions(), 1);
}

}  // namespace
}  // namespace Kavra::Redis
