// When a follower asks its server, how often, and when it does not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Kavra/Documents.h"
#include "platform/Kavra/Redis/FakeServer.h"
#include "platform/Kavra/Redis/FollowingTest.h"
#include "platform/Kavra/Redis/ScriptedServer.h"
#include "platform/Kavra/Redis/ServerProcess.h"
#include "platform/Kavra/TimeShiftedEventLoop.h"

namespace Kavra::Redis {
namespace {

using kavratest::array;
using kavratest::bulk;
using kavratest::FakeServer;
using kavratest::history;
using kavratest::kHistoryPath;
using kavratest::ServerProcess;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Le;
using testing::SizeIs;

// Notes for how long its user pauses before an attempt to connect, and lets a hundredth of it pass.
class PauseRecorder final : public kavratest::TimeShiftedEventLoop {
 public:
  using TimeShiftedEventLoop::TimeShiftedEventLoop;

  Qel::Ptr<Qel::EventWatch> timerIs(double seconds, std::function<void()> call) override {
    if (isAlarm(seconds)) return loop_.timerIs(seconds, std::move(call));
    pauses.push_back(seconds);
    return loop_.timerIs(seconds / 100, std::move(call));
  }

  std::vector<double> pauses;
};

class FeedPaceTest : public kavratest::FollowingTest {
 protected:
  FeedPaceTest() { script_.documentIs(kHistoryPath, history({"one"})); }

  void serve(FakeServer::Answer answer, Qel::EventLoop& loop) {
    fake_ = std::make_unique<FakeServer>(loop_, std::move(answer));
    feed_ = feedOf(fake_->socket(), loop);
    follow_ = followerOf(feed_);
  }
  static std::string bell(const std::string& id) {
    const auto entry = array({bulk(id), array({bulk("k"), bulk("x")})});
    return array({array({bulk("kavra:log"), array({entry})})});
  }
  // A server that answers well, and rings for nothing whenever it is asked to ring.
  void serveBells() {
    serve(
        [this](unsigned connection, std::string_view request) {
          std::string answers = script_.answersTo(connection, request);
          if (!answers.empty()) return answers;
          ++rings_;
          return bell("1-1");
        },
        loop_);
  }
  void letPass(double seconds) {
    kavratest::runUntil(
        loop_, [] { return false; }, seconds);
  }

  PauseRecorder recorder_{loop_};
  kavratest::ScriptedServer script_;
  std::unique_ptr<FakeServer> fake_;
  Qel::Ptr<Feed> feed_;
  Qel::Ptr<Follow> follow_;
  int rings_ = 0;
};

TEST_F(FeedPaceTest, AsksLittleOfAServerWithoutNews) {
  const ServerProcess server;
  feed_ = feedOf(server.socket(), loop_);
  follow_ = followerOf(feed_);
  ASSERT_TRUE(until([this] { return feed_->status().reachable; }));
  const auto commands = [&server] {
    const std::string told = server.command({"INFO", "stats"}).text;
    const std::string name = "total_commands_processed:";
    return std::stoi(told.substr(told.find(name) + name.size()));
  };
  const int before = commands();
  letPass(1.5);
  // A ring and a look at the state each second, and the question how many there were.
  EXPECT_LE(commands() - before, 8);
}

TEST_F(FeedPaceTest, AsksAtOnceAgainAfterALossThatFollowsAGoodSnapshot) {
  bool good = false;
  serve(
      [&](unsigned connection, std::string_view request) {
        if (good) return script_.answersTo(connection, request);
        fake_->closeAll();
        return std::string();
      },
      recorder_);
  ASSERT_TRUE(until([&] { return recorder_.pauses.size() > 50; }));
  EXPECT_GT(*std::max_element(recorder_.pauses.begin(), recorder_.pauses.end()), 1.0);
  good = true;
  ASSERT_TRUE(until([this] { return feed_->status().reachable; }));
  recorder_.pauses.clear();
  for (int loss = 0; loss < 5; ++loss) {
    fake_->closeAll();
    ASSERT_TRUE(until([this] { return !feed_->status().reachable; }));
    ASSERT_TRUE(until([this] { return feed_->status().reachable; }));
  }
  EXPECT_THAT(recorder_.pauses, SizeIs(5));
  EXPECT_THAT(recorder_.pauses, Each(Le(0.1)));
}

TEST_F(FeedPaceTest, DoesNotPauseWhereTheServerRingsForSomething) {
  serve(
      [this](unsigned connection, std::string_view request) {
        std::string answers = script_.answersTo(connection, request);
        if (!answers.empty()) return answers;
        script_.lastId = std::to_string(++rings_) + "-2";
        return bell(script_.lastId);
      },
      recorder_);
  ASSERT_TRUE(until([this] { return rings_ == 5; }));
  // At the beginning alone.
  EXPECT_THAT(recorder_.pauses, ElementsAre(0.0));
}

TEST_F(FeedPaceTest, AsksNoMoreWhenNobodyFollowsWhileItPauses) {
  serveBells();
  ASSERT_TRUE(until([this] { return rings_ == 5; }));
  follow_ = nullptr;
  letPass(0.3);
  EXPECT_LE(rings_, 6);
  EXPECT_EQ(fake_->openConnections(), 0U);
  EXPECT_EQ(feed_->status().problem, "nobody follows it");
}

TEST_F(FeedPaceTest, ConnectsNoMoreWhenNobodyFollowsAfterALoss) {
  serve(
      [this](unsigned, std::string_view) {
        fake_->closeAll();
        return std::string();
      },
      loop_);
  ASSERT_TRUE(until([this] { return fake_->connections() == 5; }));
  follow_ = nullptr;
  letPass(0.01);
  const unsigned connections = fake_->connections();
  letPass(0.5);
  EXPECT_EQ(fake_->connections(), connections);
}

TEST_F(FeedPaceTest, ConnectsAnewAfterALossWhileItPauses) {
  serveBells();
  ASSERT_TRUE(until([this] { return rings_ == 5; }));
  letPass(0.02);
  fake_->closeAll();
  ASSERT_TRUE(until([this] { return fake_->connections() == 2 && rings_ >= 8; }));
  EXPECT_TRUE(feed_->status().reachable);
}

TEST_F(FeedPaceTest, TellsEachTimeThatItIsFollowedWhenTheServerIsAway) {
  ServerProcess server;
  server.kill();
  feed_ = feedOf(server.socket(), loop_);
  for (std::size_t times = 1; times <= 2; ++times) {
    follow_ = followerOf(feed_);
    ASSERT_TRUE(until([&] { return log_.lines().size() == times; }));
    EXPECT_THAT(log_.lines().back(), HasSubstr("not reached"));
    follow_ = nullptr;
    ASSERT_TRUE(until([this] { return feed_->status().problem == "nobody follows it"; }));
  }
}

}  // namespace
}  // namespace Kavra::Redis
