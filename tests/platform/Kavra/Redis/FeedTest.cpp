#include "Kavra/Redis/Feed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Kavra/EntityManager.h"
#include "Kavra/Redis/DocumentHash.h"
#include "Kavra/Redis/Store.h"
#include "Qel/Clock.h"
#include "Qel/Exception.h"
#include "Qel/PollEventLoop.h"
#include "platform/Kavra/Documents.h"
#include "platform/Kavra/Redis/FollowingTest.h"
#include "platform/Kavra/Redis/ServerProcess.h"
#include "platform/Kavra/RunUntil.h"
#include "platform/Kavra/TimeShiftedEventLoop.h"
#include "support/ManualEventLoop.h"

namespace Kavra::Redis {
namespace {

using kavratest::FollowingTest;
using kavratest::history;
using kavratest::kHistoryPath;
using kavratest::kHistoryType;
using kavratest::kRedundancyPath;
using kavratest::redundancy;
using kavratest::Reloads;
using kavratest::ServerProcess;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kHistoryKey = keyOf(kHistoryPath);

// Follows the history at a real server.
class FeedTest : public FollowingTest {
 protected:
  void publish(const Qel::Document& document, const Qel::String& path = kHistoryPath) {
    Store(server_.options(), clock_).update({path}, [&](Kavra::Store::Documents& documents) {
      documents.insert_or_assign(path, document);
    });
  }
  void command(const Command& command) const {
    const Reply reply = server_.command(command);
    ASSERT_FALSE(reply.isError()) << reply.text;
  }
  bool shows(const std::vector<std::string>& causes) {
    return until([&] { return kavratest::reloadsOf(entity_) == Reloads{{0, causes}}; });
  }
  bool reached() {
    return until([this] { return feed_->status().reachable; });
  }
  bool lost() {
    return until([this] { return !feed_->status().reachable; });
  }
  // The server is not believed, for what is wrong with a key.
  bool tells(const char* key) const {
    const Status status = feed_->status();
    return !status.reachable && status.problem.view().starts_with("key " + std::string(key));
  }
  // As long as a follower needs that has missed every ring.
  void wait() {
    const auto watch = loop_.timerIs(1.5, [this] { loop_.stop(); });
    loop_.run();
  }

  ServerProcess server_;
  const Qel::Ptr<Feed> feed_ = feedOf(server_.socket(), loop_);
  const Qel::Ptr<EntityManager> manager_ = Qel::make<EntityManager>(feed_);
  const Qel::Ptr<Qel::Entity> entity_ = manager_->entityIs(kHistoryPath, kHistoryType);
};

TEST_F(FeedTest, ServesWhatItSawWhileTheServerIsAway) {
  publish(history({"one"}));
  ASSERT_TRUE(shows({"one"}));
  server_.kill();
  ASSERT_TRUE(lost());
  EXPECT_TRUE(shows({"one"}));
  server_.start();
  ASSERT_TRUE(reached());
  EXPECT_TRUE(shows({"one"}));
  publish(history({"two"}));
  EXPECT_TRUE(shows({"two"}));
  EXPECT_THAT(log_.lines(), ElementsAre(AllOf(HasSubstr("Kavra 0: " + server_.url() + ": lost: "),
                                              HasSubstr("; serving what was there 0.")),
                                        AllOf(HasSubstr(server_.url() + ": back after 0."),
                                              HasSubstr("serving what is there"))));
}

TEST_F(FeedTest, TellsTheStateOfTheServer) {
  publish(history({"one"}));
  ASSERT_TRUE(shows({"one"}));
  const Status expected = Store(server_.options(), clock_).status();
  const Status status = feed_->status();
  EXPECT_TRUE(status.reachable);
  EXPECT_EQ(status.problem, "");
  EXPECT_EQ(status.epoch, expected.epoch);
  EXPECT_EQ(status.lastId, expected.lastId);
  EXPECT_LT(status.age.value_or(9.0), 1.0);
}

TEST_F(FeedTest, ReconnectsAtOnceWhenItsConnectionIsKilled) {
  publish(history({"one"}));
  ASSERT_TRUE(shows({"one"}));
  for (int i = 0; i < 20; ++i) {
    command({"CLIENT", "KILL", "TYPE", "normal"});
    publish(history({"n" + std::to_string(i)}));
    EXPECT_TRUE(shows({"n" + std::to_string(i)}));
  }
}

TEST_F(FeedTest, IsSilentWhereNothingWasPublished) {
  ASSERT_TRUE(reached());
  EXPECT_THAT(kavratest::reloadsOf(entity_), IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FeedTest, KeepsTheRowsOfAFlushedServerAndBelievesItsNewEpoch) {
  publish(history({"one"}));
  publish(history({"two"}));
  ASSERT_TRUE(shows({"two"}));
  command({"FLUSHALL"});
  wait();
  EXPECT_TRUE(shows({"two"}));
  publish(history({"one"}));
  EXPECT_TRUE(shows({"one"}));
}

TEST_F(FeedTest, DoesNotBelieveAServerThatWentBackInItsEpoch) {
  publish(history({"one"}));
  const Reply older = server_.command({"DUMP", kHistoryKey});
  const Reply olderLog = server_.command({"DUMP", kLogKey});
  publish(history({"two"}));
  ASSERT_TRUE(shows({"two"}));
  command({"RESTORE", kHistoryKey, "0", older.text, "REPLACE"});
  command({"RESTORE", kLogKey, "0", olderLog.text, "REPLACE"});
  ASSERT_TRUE(lost());
  EXPECT_TRUE(shows({"two"}));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("lost: the server went back from ")));
  EXPECT_THAT(feed_->status().problem.stdString(), HasSubstr("went back"));
  publish(history({"three"}));
  EXPECT_TRUE(shows({"three"}));
  EXPECT_TRUE(feed_->status().reachable);
}

TEST_F(FeedTest, MissesNothingWhenTheLogIsTrimmed) {
  publish(history({"one"}));
  ASSERT_TRUE(shows({"one"}));
  for (int i = 0; i < 10; ++i) {
    publish(history({std::to_string(i)}));
    command({"XTRIM", kLogKey, "MAXLEN", "0"});
    EXPECT_TRUE(shows({std::to_string(i)}));
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FeedTest, LivesThroughEveryWrongTypeInThePlaceOfTheLogAndTheEpoch) {
  const std::vector<Command> wrong = {{"SET", "", "x"},
                                      {"LPUSH", "", "x"},
                                      {"SADD", "", "x"},
                                      {"ZADD", "", "1", "x"},
                                      {"HSET", "", "a", "b"}};
  publish(history({"start"}));
  ASSERT_TRUE(shows({"start"}));
  int number = 0;
  for (const char* key : {kLogKey, kEpochKey}) {
    for (Command replacement : wrong) {
      replacement[1] = key;
      command({"DEL", key});
      command(replacement);
      // A text is another epoch.
      if (key != std::string(kEpochKey) || replacement[0] != "SET") {
        EXPECT_TRUE(until([&] { return tells(key); })) << key << ' ' << replacement[0];
      }
      publish(history({std::to_string(++number)}));
      EXPECT_TRUE(shows({std::to_string(number)})) << key << ' ' << replacement[0];
    }
  }
}

TEST_F(FeedTest, QuarantinesEveryWrongTypeInThePlaceOfADocument) {
  publish(history({"one"}));
  ASSERT_TRUE(shows({"one"}));
  const std::vector<Command> wrong = {{"SET", kHistoryKey, "x"},
                                      {"LPUSH", kHistoryKey, "x"},
                                      {"SADD", kHistoryKey, "x"},
                                      {"ZADD", kHistoryKey, "1", "x"},
                                      {"XADD", kHistoryKey, "*", "a", "b"},
                                      {"HSET", kHistoryKey, "n", "1"}};
  for (const Command& replacement : wrong) {
    command({"DEL", kHistoryKey});
    command(replacement);
    command({"XADD", kLogKey, "*", "k", kHistoryKey});
    EXPECT_TRUE(until([this] { return !feed_->status().quarantined.empty(); }));
    EXPECT_TRUE(shows({"one"})) << replacement[0];
    EXPECT_THAT(feed_->status().quarantined.at(0).why.stdString(), HasSubstr("key " + kHistoryKey));
    publish(history({"one"}));
    EXPECT_TRUE(until([this] { return feed_->status().quarantined.empty(); }));
    EXPECT_THAT(log_.takeLines(),
                ElementsAre(HasSubstr("refused: key " + kHistoryKey),
                            std::string("Kavra 0: ") + kHistoryPath + ": no longer refused"));
  }
}

TEST_F(FeedTest, ReportsTheSameQuarantineOnce) {
  publish(history({"one"}));
  ASSERT_TRUE(shows({"one"}));
  command({"HSET", kHistoryKey, "0:0:t", "nan"});
  for (int i = 0; i < 5; ++i) publish(redundancy(static_cast<U32>(i), true), kRedundancyPath);
  wait();
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("refused: key " + kHistoryKey + ", field _c")));
  EXPECT_TRUE(shows({"one"}));
}

TEST_F(FeedTest, GivesAStoppedServerUpAndFindsItAgain) {
  publish(history({"one"}));
  ASSERT_TRUE(shows({"one"}));
  server_.signal(SIGSTOP);
  ASSERT_TRUE(lost());
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("lost: no answer within 3 s")));
  server_.signal(SIGCONT);
  ASSERT_TRUE(reached());
  EXPECT_TRUE(shows({"one"}));
}

TEST_F(FeedTest, FindsEveryPathForWhoFollowsAPrefix) {
  std::map<Qel::String, bool> published;
  const auto follow = feed_->followPrefixIs(
      "cell/", [&](const Qel::String& path, const CheckedDocument* checked) -> Qel::String {
        published[path] = checked != nullptr;
        return {};
      });
  publish(history({"one"}), "cell/1/a");
  publish(history({"one"}), "other");
  EXPECT_TRUE(until([&] { return published["cell/1/a"]; }));
  publish(redundancy(1, true), kRedundancyPath);
  EXPECT_TRUE(until([&] { return published[kRedundancyPath]; }));
  // Without the index, the doorbells tell.
  command({"DEL", kIndexKey});
  publish(history({"one"}), "cell/3/b");
  EXPECT_TRUE(until([&] { return published["cell/3/b"]; }));
  EXPECT_TRUE(published["cell/1/a"]);
  Store(server_.options(), clock_).update({"cell/1/a"}, [](auto& documents) { documents.clear(); });
  EXPECT_TRUE(until([&] { return !published["cell/1/a"]; }));
  EXPECT_EQ(published.count("other"), 0U);
}

TEST_F(FeedTest, ReadsAPathThatIsFollowedLaterWithinASecondOrTwo) {
  publish(redundancy(7, true), kRedundancyPath);
  ASSERT_TRUE(reached());
  int told = 0;
  const auto follow = feed_->followIs(kRedundancyPath, [&](const auto&, const CheckedDocument* it) {
    if (it != nullptr) ++told;
    return Qel::String();
  });
  EXPECT_TRUE(kavratest::runUntil(
      loop_, [&] { return told == 1; }, 2.0));
}

TEST_F(FeedTest, IsCompleteWhenAllThatIsFollowedWasRead) {
  EXPECT_FALSE(feed_->status().complete);
  publish(history({"one"}));
  publish(redundancy(3, true), kRedundancyPath);
  ASSERT_TRUE(shows({"one"}));
  EXPECT_TRUE(feed_->status().isFresh());
  bool told = false;
  const auto late = feed_->followIs(kRedundancyPath, [&](const auto&, const auto*) {
    told = true;
    return Qel::String();
  });
  EXPECT_FALSE(feed_->status().complete);
  EXPECT_TRUE(until([&] { return feed_->status().complete; }));
  EXPECT_TRUE(told);
}

TEST_F(FeedTest, MayBeLetGoByItsFollower) {
  Qel::Ptr<Feed> feed = feedOf(server_.socket(), loop_);
  bool told = false;
  Qel::Ptr<Follow> follow;
  follow = feed->followIs(kHistoryPath, [&](const auto&, const CheckedDocument*) {
    told = true;
    follow = nullptr;
    return Qel::String();
  });
  feed = nullptr;
  publish(history({"one"}));
  EXPECT_TRUE(until([&] { return told; }));
  EXPECT_TRUE(shows({"one"}));
}

TEST_F(FeedTest, StaysWithAServerThatHasNoMemoryLeft) {
  publish(history({"one"}));
  ASSERT_TRUE(shows({"one"}));
  command({"CONFIG", "SET", "maxmemory", "1"});
  wait();
  EXPECT_TRUE(feed_->status().reachable);
  EXPECT_LT(feed_->status().age.value_or(9.0), 1.4);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FeedTest, ReadsFromAServerThatHadNoMemoryLeftBefore) {
  publish(history({"one"}));
  command({"CONFIG", "SET", "maxmemory", "1"});
  EXPECT_TRUE(shows({"one"}));
  EXPECT_TRUE(feed_->status().reachable);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

class UserTest : public FollowingTest {
 protected:
  static ConnectionOptions as(const ServerProcess& server, const char* user, const char* password) {
    return {Address::ofPath(server.socket()), Login{user, password}};
  }

  ServerProcess server_{{"--user", "agent", "on", ">right", "~kavra:*", "+@all"}};
};

TEST_F(UserTest, IsRefusedWithAWrongPasswordAndLetInWithTheRightOne) {
  const auto refused = Qel::make<Feed>(as(server_, "agent", "wrong"), loop_, clock_);
  const auto welcome = Qel::make<Feed>(as(server_, "agent", "right"), loop_, clock_);
  const auto first = followerOf(refused);
  const auto second = followerOf(welcome);
  EXPECT_TRUE(until([&] { return welcome->status().reachable; }));
  EXPECT_TRUE(until([&] { return !log_.lines().empty(); }));
  EXPECT_FALSE(refused->status().reachable);
  EXPECT_THAT(log_.lines(),
              ElementsAre(AllOf(HasSubstr("not reached: WRONGPASS"), HasSubstr("nothing to serve"),
                                testing::Not(HasSubstr("wrong;")))));
}

TEST_F(UserTest, IsRefusedWithAWrongPasswordByAServerThatHasNoMemoryLeft) {
  server_.command({"CONFIG", "SET", "maxmemory", "1"});
  const auto refused = Qel::make<Feed>(as(server_, "agent", "wrong"), loop_, clock_);
  const auto follower = followerOf(refused);
  EXPECT_TRUE(until([&] { return refused->status().reachable || !log_.lines().empty(); }));
  EXPECT_FALSE(refused->status().reachable);
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("not reached: WRONGPASS")));
}

TEST_F(UserTest, IsLostWhenItsUserIsDeletedAndBackWhenItIsThereAgain) {
  const auto feed = Qel::make<Feed>(as(server_, "agent", "right"), loop_, clock_);
  const auto follower = followerOf(feed);
  ASSERT_TRUE(until([&] { return feed->status().reachable; }));
  server_.command({"ACL", "DELUSER", "agent"});
  ASSERT_TRUE(until([&] { return !feed->status().reachable; }));
  server_.command({"ACL", "SETUSER", "agent", "on", ">right", "~kavra:*", "+@all"});
  EXPECT_TRUE(until([&] { return feed->status().reachable; }));
  EXPECT_EQ(log_.lines().size(), 2U);
}

// As one whose credentials come from a file.
class CredentialsFileTest : public UserTest {
 protected:
  CredentialsFileTest() {
    server_.command({"ACL", "SETUSER", "heir", "on", ">other", "~kavra:*", "+@all"});
    write("agent\nright\n");
    feed_ = Qel::make<Feed>(
        ConnectionOptions{Address::ofPath(server_.socket()), Login::ofFile(file_), file_}, loop_,
        clock_);
  }
  void write(const std::string& text) const {
    std::ofstream(file_) << text;
    std::filesystem::permissions(file_, std::filesystem::perms::owner_read);
  }
  // The users who are connected, but for the one who asks.
  std::string users() const {
    std::string users;
    const std::string list = server_.command({"CLIENT", "LIST"}).text;
    for (const char* user : {"agent", "heir"}) {
      if (list.find(" user=" + std::string(user)) != std::string::npos) users += user;
    }
    return users;
  }

  const std::string file_ = (server_.directory().path() / "agent.auth").string();
  Qel::Ptr<Feed> feed_;
};

TEST_F(CredentialsFileTest, ConnectsAnewWithOtherCredentials) {
  EXPECT_FALSE(feed_->readCredentialsAgain());
  const auto follower = followerOf(feed_);
  ASSERT_TRUE(until([&] { return feed_->status().reachable; }));
  EXPECT_FALSE(feed_->readCredentialsAgain());
  EXPECT_TRUE(feed_->status().reachable);
  std::filesystem::remove(file_);
  write("heir\nother\n");
  EXPECT_TRUE(feed_->readCredentialsAgain());
  EXPECT_FALSE(feed_->status().reachable);
  EXPECT_FALSE(feed_->status().problem.empty());
  EXPECT_TRUE(until([&] { return feed_->status().reachable; }));
  EXPECT_TRUE(until([&] { return users() == "heir"; }));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(CredentialsFileTest, StaysWithThoseThatItHasWhereTheFileDoesNotHold) {
  const auto follower = followerOf(feed_);
  ASSERT_TRUE(until([&] { return feed_->status().reachable; }));
  std::filesystem::remove(file_);
  EXPECT_THROW(feed_->readCredentialsAgain(), StoreException);
  write("one line\n");
  EXPECT_THROW(feed_->readCredentialsAgain(), StoreException);
  EXPECT_TRUE(feed_->status().reachable);
  EXPECT_EQ(users(), "agent");
}

TEST_F(CredentialsFileTest, TakesOtherCredentialsWhileItWaitsForTheNextAttempt) {
  server_.command({"ACL", "SETUSER", "agent", "off"});
  const auto follower = followerOf(feed_);
  ASSERT_TRUE(until([&] { return !log_.lines().empty(); }));
  std::filesystem::remove(file_);
  write("heir\nother\n");
  EXPECT_TRUE(feed_->readCredentialsAgain());
  EXPECT_TRUE(until([&] { return feed_->status().reachable; }));
}

TEST_F(CredentialsFileTest, StaysAwayWhereNobodyFollows) {
  std::filesystem::remove(file_);
  write("heir\nother\n");
  EXPECT_TRUE(feed_->readCredentialsAgain());
  loop_.runOnce(0.05);
  EXPECT_EQ(users(), "");
  const auto follower = followerOf(feed_);
  EXPECT_TRUE(until([&] { return feed_->status().reachable; }));
  EXPECT_EQ(users(), "heir");
}

TEST_F(UserTest, SaysWhatTheUserMayNotDo) {
  server_.command({"ACL", "SETUSER", "agent", "-xinfo"});
  const auto feed = Qel::make<Feed>(as(server_, "agent", "right"), loop_, clock_);
  const auto follower = followerOf(feed);
  EXPECT_TRUE(until([&] { return !log_.lines().empty(); }));
  EXPECT_THAT(feed->status().problem.stdString(), HasSubstr("NOPERM"));
}

TEST_F(FollowingTest, IsConnectedWhileSomebodyFollows) {
  const ServerProcess server;
  const auto feed = feedOf(server.socket(), loop_);
  const auto connections = [&] {
    const std::string list = server.command({"CLIENT", "LIST"}).text;
    return std::count(list.begin(), list.end(), '\n') - 1;
  };
  loop_.runOnce(0.05);
  EXPECT_EQ(connections(), 0);
  for (int time = 0; time < 3; ++time) {
    auto follower = followerOf(feed);
    EXPECT_TRUE(until([&] { return feed->status().reachable; }));
    EXPECT_EQ(connections(), 1);
    // One comes before the other goes.
    const auto other = followerOf(feed);
    follower = nullptr;
    loop_.runOnce(0.0);
    EXPECT_TRUE(feed->status().reachable);
    follower = other;
  }
  EXPECT_TRUE(until([&] { return connections() == 0; }));
  EXPECT_FALSE(feed->status().reachable);
  EXPECT_EQ(feed->status().problem, "nobody follows it");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FollowingTest, TellsThatItHasNotReachedTheServerYet) {
  support::ManualEventLoop silent;
  const auto feed =
      Qel::make<Feed>(ConnectionOptions{Address::ofHost("localhost"), {}}, silent, clock_);
  EXPECT_EQ(feed->status().problem, "nobody follows it");
  auto follower = followerOf(feed);
  silent.settle();
  EXPECT_EQ(feed->status().problem, "not reached yet");
  EXPECT_FALSE(feed->status().reachable);
  follower = nullptr;
  silent.settle();
  EXPECT_EQ(feed->status().problem, "nobody follows it");
}

// A loop that has no room for timers once it is told so.
class TimerlessEventLoop final : public kavratest::TimeShiftedEventLoop {
 public:
  using TimeShiftedEventLoop::TimeShiftedEventLoop;
  Qel::Ptr<Qel::EventWatch> timerIs(double seconds, std::function<void()> call) override {
    if (isFull) Qel::throwRangeException("no room for a timer");
    return loop_.timerIs(seconds, std::move(call));
  }
  bool isFull = false;
};

TEST_F(FollowingTest, EndsTheProcessRatherThanNeverAskAgain) {
  support::ManualEventLoop manual;
  TimerlessEventLoop loop(manual);
  const auto feed = feedOf("/no/such/socket", loop);
  const auto follower = followerOf(feed);
  loop.isFull = true;
  EXPECT_DEATH(manual.settle(), "no room for a timer");
}

TEST_F(FollowingTest, EndsTheProcessRatherThanStayWithALostLink) {
  const ServerProcess server;
  TimerlessEventLoop loop(loop_);
  const auto feed = feedOf(server.socket(), loop);
  const auto follower = followerOf(feed);
  ASSERT_TRUE(until([&] { return feed->status().reachable; }));
  EXPECT_DEATH(
      {
        loop.isFull = true;
        server.command({"CLIENT", "KILL", "TYPE", "normal"});
        until([&] { return !feed->status().reachable; });
      },
      "no room for a timer");
}

TEST_F(FollowingTest, WaitsUntilTheLoopHasRoomForItsDescriptors) {
  const ServerProcess server;
  support::ManualEventLoop full;
  full.mostDescriptorsIs(1);
  const auto feed = feedOf(server.socket(), full);
  const auto follower = followerOf(feed);
  full.settle();
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("not reached: no room for a descriptor")));
  EXPECT_EQ(full.descriptors(), 0U);
  for (int i = 0; i < 100; ++i) full.advance(1.0);
  EXPECT_EQ(log_.lines().size(), 1U);
  full.mostDescriptorsIs(2);
  for (int i = 0; i < 100 && full.descriptors() != 2; ++i) full.advance(0.1);
  EXPECT_EQ(full.descriptors(), 2U);
}

}  // namespace
}  // namespace Kavra::Redis
