#include "Kavra/Redis/Link.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Kavra/EntityManager.h"
#include "platform/Kavra/Documents.h"
#include "platform/Kavra/HastyEventLoop.h"
#include "platform/Kavra/Redis/FakeServer.h"
#include "platform/Kavra/Redis/FollowingTest.h"
#include "platform/Kavra/Redis/ScriptedServer.h"
#include "support/OpenDescriptors.h"
#include "support/Random.h"

namespace Kavra::Redis {
namespace {

using kavratest::FakeServer;
using kavratest::history;
using kavratest::kHistoryPath;
using kavratest::kHistoryType;
using kavratest::Reloads;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Follows the history at a server that the test makes up.
class LinkTest : public kavratest::FollowingTest {
 protected:
  LinkTest() { script_.documentIs(kHistoryPath, history({"one", "two"})); }

  void serve(FakeServer::Answer answer) {
    fake_ = std::make_unique<FakeServer>(loop_, std::move(answer));
    feed_ = feedOf(fake_->socket(), hasty_);
    manager_ = Qel::make<EntityManager>(feed_);
    entity_ = manager_->entityIs(kHistoryPath, kHistoryType);
  }
  void serveScript() {
    serve([this](unsigned connection, std::string_view request) {
      return script_.answersTo(connection, request);
    });
  }
  Reloads shown() const { return kavratest::reloadsOf(entity_); }

  const Reloads published_{{0, {"one", "two"}}};
  kavratest::HastyEventLoop hasty_{loop_, 50};
  kavratest::ScriptedServer script_;
  std::unique_ptr<FakeServer> fake_;
  Qel::Ptr<Feed> feed_;
  Qel::Ptr<EntityManager> manager_;
  Qel::Ptr<Qel::Entity> entity_;
  Qel::Ptr<Qel::EventWatch> closing_;
};

TEST_F(LinkTest, ReadsAnAnswerThatComesInSingleOctets) {
  serveScript();
  hasty_.factorIs(1);
  fake_->singleOctetsIs(true);
  EXPECT_TRUE(until([this] { return shown() == published_; }));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(LinkTest, TakesNothingFromAnAnswerThatIsCutOff) {
  std::size_t wholeAt = 0;
  serve([&](unsigned connection, std::string_view request) {
    std::string answers = script_.answersTo(connection, request);
    if (connection >= answers.size()) {
      if (wholeAt == 0) wholeAt = answers.size();
      return answers;
    }
    EXPECT_THAT(shown(), IsEmpty());
    closing_ = loop_.timerIs(0.0, [this] { fake_->closeAll(); });
    return answers.substr(0, connection);
  });
  hasty_.factorIs(500);
  EXPECT_TRUE(until([this] { return shown() == published_; }));
  EXPECT_GT(wholeAt, 200U);
}

TEST_F(LinkTest, GivesUpAServerThatIsSilent) {
  serve([](unsigned, std::string_view) { return std::string(); });
  EXPECT_TRUE(until([this] { return fake_->connections() > 3; }));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("not reached: no answer within 3 s")));
  EXPECT_LE(fake_->openConnections(), 2U);
}

TEST_F(LinkTest, GivesUpAServerThatSpeaksOtherwise) {
  serve([](unsigned, std::string_view) { return std::string("HTTP/1.1 400 Bad Request\r\n\r\n"); });
  EXPECT_TRUE(until([this] { return fake_->connections() > 3; }));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("not the Redis protocol")));
}

TEST_F(LinkTest, GivesUpAServerThatDiscardsItsSnapshot) {
  serve([this](unsigned connection, std::string_view request) {
    const std::string answers = script_.answersTo(connection, request);
    return answers.substr(0, answers.find('*')) + kavratest::kNilArray;
  });
  EXPECT_TRUE(until([this] { return fake_->connections() > 3; }));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("the transaction was discarded")));
}

TEST_F(LinkTest, ReportsAServerThatNeverRingsOnce) {
  serve([this](unsigned connection, std::string_view request) {
    const std::string answers = script_.answersTo(connection, request);
    return answers.empty() ? std::string("-NOPERM no permissions to run 'xread'\r\n") : answers;
  });
  EXPECT_TRUE(until([this] { return fake_->connections() > 20; }));
  EXPECT_EQ(shown(), published_);
  EXPECT_FALSE(feed_->status().reachable);
  EXPECT_LT(feed_->status().age.value_or(9.0), 9.0);
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("lost: an error: NOPERM")));
}

TEST_F(LinkTest, AsksAServerThatRingsForNothingNowAndThen) {
  using kavratest::array;
  using kavratest::bulk;
  const std::string bell = array(
      {array({bulk("kavra:log"), array({array({bulk("1-1"), array({bulk("k"), bulk("x")})})})})});
  for (const std::string& ring : {std::string(kavratest::kNilArray), bell}) {
    int rings = 0;
    serve([&](unsigned connection, std::string_view request) {
      std::string answers = script_.answersTo(connection, request);
      if (!answers.empty()) return answers;
      ++rings;
      return ring;
    });
    hasty_.factorIs(1);
    EXPECT_TRUE(until([&] { return rings == 5; }));
    rings = 0;
    kavratest::runUntil(
        loop_, [] { return false; }, 0.5);
    EXPECT_LE(rings, 6) << ring;
    EXPECT_EQ(shown(), published_);
    EXPECT_TRUE(feed_->status().reachable);
  }
}

TEST_F(LinkTest, TakesNothingFromAServerWithoutMemoryThatChangesWhileItIsRead) {
  const Qel::String path = kavratest::kRedundancyPath;
  script_.documentIs(path, kavratest::redundancy(1, true));
  bool changed = false;
  serve([&](unsigned connection, std::string_view request) {
    if (request.find("EXEC") != std::string_view::npos) {
      std::string answers = script_.answersTo(connection, request);
      const std::size_t queued = answers.find("+QUEUED");
      const std::string refused = "-OOM command not allowed when used memory > 'maxmemory'.\r\n";
      answers.replace(queued, std::string("+QUEUED\r\n").size(), refused);
      answers.replace(answers.rfind("+QUEUED\r\n") + 9, std::string::npos,
                      "-EXECABORT Transaction discarded because of previous errors.\r\n");
      return answers;
    }
    // Between the redundancy status and the history, both are published.
    const std::size_t middle = request.rfind("*2\r\n$7\r\nHGETALL");
    if (changed || middle == std::string_view::npos) return script_.answersTo(connection, request);
    std::string answers = script_.answersTo(connection, request.substr(0, middle));
    changed = true;
    script_.lastId = "2-1";
    script_.documentIs(path, kavratest::redundancy(2, true));
    script_.documentIs(kHistoryPath, history({"three"}));
    return answers + script_.answersTo(connection, request.substr(middle));
  });
  std::vector<Qel::Document> told;
  const auto follow =
      feed_->followIs(path, [&](const Qel::String&, const CheckedDocument* checked) -> Qel::String {
        if (checked != nullptr) told.push_back(checked->document);
        return {};
      });
  EXPECT_TRUE(until([this] { return shown() == Reloads{{0, {"three"}}}; }));
  EXPECT_TRUE(changed);
  EXPECT_THAT(told, ElementsAre(kavratest::redundancy(2, true)));
  EXPECT_TRUE(feed_->status().reachable);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(LinkTest, IsFollowedAgainAfterAMomentWithoutMemory) {
  class ShortOfMemory final : public Qel::Clock {
   public:
    double now() const override {
      if (++looks_ == 1) throw std::bad_alloc();
      return 1700000000.0;
    }

   private:
    mutable int looks_ = 0;
  };
  serveScript();
  const auto feed = Qel::make<Feed>(ConnectionOptions{Address::ofPath(fake_->socket()), {}}, hasty_,
                                    Qel::make<ShortOfMemory>());
  const auto follower = followerOf(feed);
  EXPECT_TRUE(until([&] { return feed->status().reachable; }));
  EXPECT_THAT(log_.lines(),
              ElementsAre(HasSubstr("not reached: std::bad_alloc"), HasSubstr("back after")));
}

TEST_F(LinkTest, TakesABugForNoOutage) {
  class Faulty final : public Qel::Clock {
   public:
    double now() const override { throw std::logic_error("spilt milk"); }
  };
  serveScript();
  const auto feed = Qel::make<Feed>(ConnectionOptions{Address::ofPath(fake_->socket()), {}}, loop_,
                                    Qel::make<Faulty>());
  const auto follower = followerOf(feed);
  EXPECT_THROW((void)until([&] { return feed->status().reachable; }), std::logic_error);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(LinkTest, SurvivesAnswersThatNobodyAskedFor) {
  serve([this](unsigned connection, std::string_view request) {
    const std::string answers = script_.answersTo(connection, request);
    return answers.empty() ? answers : answers + "+MORE\r\n+MORE\r\n";
  });
  EXPECT_TRUE(until([this] { return fake_->connections() > 3; }));
  EXPECT_THAT(log_.lines().at(0), HasSubstr("an answer that nobody asked for"));
}

TEST_F(LinkTest, PassesOnWhyAServerClosesTheConnection) {
  serve([this](unsigned, std::string_view) {
    closing_ = loop_.timerIs(0.001, [this] { fake_->closeAll(); });
    return std::string("-ERR max number of clients reached\r\n");
  });
  EXPECT_TRUE(until([this] { return fake_->connections() > 3; }));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("ERR max number of clients reached")));
}

TEST_F(LinkTest, GivesUpAServerThatFloodsIt) {
  serve([](unsigned, std::string_view) {
    return "$1000000000\r\n" + std::string(std::size_t{98} << 20, 'x');
  });
  hasty_.factorIs(0.5);
  // So much takes a busy machine a while.
  EXPECT_TRUE(kavratest::runUntil(
      loop_, [this] { return fake_->connections() > 1; }, 60.0));
  EXPECT_THAT(log_.lines().at(0), HasSubstr("a text is larger than 100663296 octets"));
}

TEST_F(LinkTest, ShowsNothingButWhatWasPublishedThroughMangledAnswers) {
  support::Random random;
  SCOPED_TRACE(random.replay());
  log_.levelIs("Kavra", 0);
  serve([&](unsigned connection, std::string_view request) {
    std::string answers = script_.answersTo(connection, request);
    for (unsigned i = 0; !answers.empty() && i <= random.below(2); ++i) {
      answers[random.below(static_cast<unsigned>(answers.size()))] =
          static_cast<char>(random.below(256));
    }
    return answers;
  });
  hasty_.factorIs(1000);
  const auto wanted = static_cast<unsigned>(support::randomSteps(1000));
  const bool enough = kavratest::runUntil(
      loop_,
      [&] {
        EXPECT_TRUE(shown().empty() || shown() == published_);
        return fake_->connections() > wanted;
      },
      60.0);
  EXPECT_TRUE(enough) << fake_->connections();
  EXPECT_EQ(shown(), published_);
}

TEST_F(LinkTest, IsNotMisledByAStateThatOneAnswerAloneTold) {
  script_.lastId = "9999999999999-0";
  int requests = 0;
  serve([&](unsigned connection, std::string_view request) {
    if (++requests == 2) {
      script_.lastId = "5-5";
      script_.documentIs(kHistoryPath, history({"three"}));
    }
    return script_.answersTo(connection, request);
  });
  const Reloads later{{0, {"three"}}};
  EXPECT_TRUE(until([&] { return shown() == later; }));
}

TEST_F(LinkTest, NeedsNoMoreMemoryNorDescriptorsAfterThousandsOfConnections) {
  serve([this](unsigned connection, std::string_view request) {
    std::string answers = script_.answersTo(connection, request);
    // An XREAD, after the snapshot.
    if (answers.empty()) closing_ = loop_.timerIs(0.0, [this] { fake_->closeAll(); });
    return answers;
  });
  hasty_.factorIs(1000);
  const auto reach = [this](unsigned connections) {
    return kavratest::runUntil(
        loop_,
        [&] {
          log_.clear();
          return fake_->connections() >= connections;
        },
        120.0);
  };
  ASSERT_TRUE(reach(200));
  script_.forget();
  const std::ptrdiff_t descriptors = support::openDescriptors();
  const std::size_t memory = mallinfo2().uordblks;
  ASSERT_TRUE(reach(200 + MANY_CONNECTIONS));
  script_.forget();
  const std::size_t memoryAfter = mallinfo2().uordblks;
  RecordProperty("octets_at_first", std::to_string(memory));
  RecordProperty("octets_after_many_connections", std::to_string(memoryAfter));
  EXPECT_LE(support::openDescriptors(), descriptors + 3);
  EXPECT_LE(memoryAfter, memory + 32768);
  EXPECT_EQ(shown(), published_);
}

}  // namespace
}  // namespace Kavra::Redis
