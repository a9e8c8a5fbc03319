// How long an answer may take that has begun.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Kavra/Documents.h"
#include "platform/Kavra/Redis/FakeServer.h"
#include "platform/Kavra/Redis/FollowingTest.h"
#include "platform/Kavra/Redis/ScriptedServer.h"
#include "support/ManualEventLoop.h"

namespace Kavra::Redis {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Follows a server that answers the login at first, whole or in part, in a time of the test's own.
class SlowAnswerTest : public kavratest::FollowingTest {
 protected:
  explicit SlowAnswerTest(const std::vector<std::string>& causes = {"one"})
      : server_(loop_, [this](unsigned connection, std::string_view request) {
          if (connection == 0) rest_ += script_.answersTo(connection, request);
          return std::string();
        }) {
    script_.documentIs(kavratest::kHistoryPath, kavratest::history(causes));
    time_.settle();
    pass();
  }
  // Everything that can be read and written is.
  void pass() {
    constexpr int kMostDescriptors = 64;
    for (int round = 0; round < 4; ++round) {
      for (int fd = 0; fd < kMostDescriptors; ++fd) {
        if (time_.isWriteWatched(fd)) time_.writable(fd);
        if (time_.isReadWatched(fd)) time_.readable(fd);
      }
      loop_.runOnce(0.01);
    }
  }
  void sends(std::size_t octets) {
    server_.sends(0, rest_.substr(0, octets));
    rest_.erase(0, octets);
    pass();
  }

  void isGivenUpAfter(double seconds, const std::string& why) {
    time_.advance(seconds - 0.1);
    EXPECT_THAT(log_.lines(), IsEmpty());
    time_.advance(0.2);
    EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("not reached: " + why)));
  }

  support::ManualEventLoop time_;
  kavratest::ScriptedServer script_;
  std::string rest_;
  kavratest::FakeServer server_;
  const Qel::Ptr<Feed> feed_ = feedOf(server_.socket(), time_);
  const Qel::Ptr<Follow> follow_ = followerOf(feed_);
};

TEST_F(SlowAnswerTest, IsGivenUpASecondAfterItStoppedInsideAReply) {
  sends(std::string_view("+PON").size());
  isGivenUpAfter(1.0, "an answer stopped in the middle for 1 s");
}

TEST_F(SlowAnswerTest, IsGivenUpASecondAfterItStoppedBetweenTwoReplies) {
  sends(std::string_view("+PONG\r\n+OK\r\n").size());
  isGivenUpAfter(1.0, "an answer stopped in the middle for 1 s");
}

// A publisher's link: between two replies the server may have much to do.
class PatientLinkTest : public SlowAnswerTest {
 protected:
  PatientLinkTest() {
    pass();
    link_->requestIs({{"MULTI"}, {"EXEC"}},
                     [this](const Link::Replies& replies) { answered_ = replies.size(); });
    pass();
  }
  void answers(std::string_view text) {
    server_.sends(1, text);
    pass();
  }

  std::string lost_;
  std::size_t answered_ = 0;
  Qel::Ptr<Link> link_ = Qel::make<Link>(
      time_, Address::ofPath(server_.socket()).resolve().front(),
      [this](const std::string& why) { lost_ = why; }, Link::Stall::insideReply);
};

TEST_F(PatientLinkTest, WaitsBetweenTwoReplies) {
  answers("+OK\r\n");
  time_.advance(2.8);
  EXPECT_EQ(lost_, "");
  answers("*0\r\n");
  EXPECT_EQ(answered_, 2U);
}

TEST_F(PatientLinkTest, IsLostASecondAfterAReplyStoppedInside) {
  answers("+OK\r\n*");
  time_.advance(0.9);
  EXPECT_EQ(lost_, "");
  time_.advance(0.2);
  EXPECT_EQ(lost_, "an answer stopped in the middle for 1 s");
}

TEST_F(PatientLinkTest, IsLostThreeSecondsAfterTheRequest) {
  answers("+OK\r\n");
  time_.advance(3.1);
  EXPECT_EQ(lost_, "no answer within 3 s");
}

class LargeAnswerTest : public SlowAnswerTest {
 protected:
  LargeAnswerTest() : SlowAnswerTest(std::vector<std::string>(2000, std::string(1000, 'x'))) {}
  // Octets of the answer come, and are taken.
  void come(std::size_t octets) {
    sends(octets);
    for (int i = 0; i < 4; ++i) pass();
  }
};

TEST_F(LargeAnswerTest, MayTakeAsLongAsItNeedsWhileItComesAtAFairPace) {
  const std::size_t pieces = rest_.size() / 300000 + 1;
  ASSERT_GT(pieces, 5U);
  for (std::size_t piece = 0; piece < pieces; ++piece) {
    come(300000);
    time_.advance(0.9);
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_TRUE(feed_->status().age);
}

TEST_F(LargeAnswerTest, IsGivenUpWhereItDrips) {
  for (int second = 0; second < 3; ++second) {
    come(50000);
    time_.advance(0.9);
    EXPECT_THAT(log_.lines(), IsEmpty());
  }
  come(50000);
  time_.advance(0.9);
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("no answer within 3 s")));
}

TEST_F(SlowAnswerTest, MustBeginWithinThreeSeconds) { isGivenUpAfter(3.0, "no answer within 3 s"); }

}  // namespace
}  // namespace Kavra::Redis
